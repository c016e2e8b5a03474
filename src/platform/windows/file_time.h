#pragma once

#include <windows.h>

#include <chrono>

namespace vosk::platform::windows {

[[nodiscard]] std::chrono::system_clock::time_point SystemTimeOf(const FILETIME& time);

}  // namespace vosk::platform::windows
