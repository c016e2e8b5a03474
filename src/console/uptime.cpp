#include "console/uptime.h"

#include <fmt/format.h>

namespace vosk::console {

std::string FormatUptime(std::chrono::steady_clock::duration uptime) {
  const auto total = std::chrono::duration_cast<std::chrono::seconds>(uptime).count();
  const auto days = total / 86'400;
  const auto hours = total / 3'600 % 24;
  const auto minutes = total / 60 % 60;
  std::string text;
  if (days > 0) text += fmt::format("{}d ", days);
  if (total >= 3'600) text += fmt::format("{}h ", hours);
  if (total >= 60) text += fmt::format("{}m ", minutes);
  return text + fmt::format("{}s", total % 60);
}

}  // namespace vosk::console
