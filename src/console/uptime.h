#pragma once

#include <chrono>
#include <string>

namespace vosk::console {

// "1d 0h 5m 3s": whole units, the leading ones left out while they are zero.
[[nodiscard]] std::string FormatUptime(std::chrono::steady_clock::duration uptime);

}  // namespace vosk::console
