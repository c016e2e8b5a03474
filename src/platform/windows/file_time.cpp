#include "platform/windows/file_time.h"

namespace vosk::platform::windows {

std::chrono::system_clock::time_point SystemTimeOf(const FILETIME& time) {
  // The file time counts tenths of a microsecond from the start of 1601.
  using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
  constexpr std::chrono::seconds kFrom1601To1970{11'644'473'600};
  const Ticks since_1601(std::int64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
  return std::chrono::system_clock::time_point(since_1601 - kFrom1601To1970);
}

}  // namespace vosk::platform::windows
