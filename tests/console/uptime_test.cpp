#include "console/uptime.h"

#include <gtest/gtest.h>

namespace vosk::console {
namespace {

using namespace std::chrono_literals;

TEST(FormatUptime, LeavesOutLeadingZeroUnits) {
  const std::pair<std::chrono::steady_clock::duration, std::string> rows[] = {
      {0s, "0s"},
      {59s + 999ms, "59s"},
      {1min, "1m 0s"},
      {59min + 59s, "59m 59s"},
      {1h + 5s, "1h 0m 5s"},
      {24h - 1s, "23h 59m 59s"},
      {24h, "1d 0h 0m 0s"},
      {400 * 24h + 23h + 5min + 3s, "400d 23h 5m 3s"},
  };
  for (const auto& [uptime, text] : rows) EXPECT_EQ(FormatUptime(uptime), text);
}

}  // namespace
}  // namespace vosk::console
