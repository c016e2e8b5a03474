#pragma once

#include <chrono>
#include <string>

namespace vosk::console {

// Returns text like "1d 0h 5m 3s"; leading units are left out while they are zero.
[[nodiscard]] std::string FormatUptime(std::chrono::steady_clock::duration uptime);

}  // namespace vosk::console
