#include "console/uptime.h"

#include <gtest/gtest.h>

namespace vosk::console {
namespace {

using namespace std::chrono_literals;
constexpr auto kDay = 24h;

TEST(FormatUptime, LeavesOutLeadingZeroUnits) {
  struct {
    std::chrono::steady_clock::duration uptime;
    std::string text;
  } const rows[] = {
      {0s, "0s"},
      {999ms, "0s"},
      {42s, "42s"},
      {59s + 999ms, "59s"},
      {1min, "1m 0s"},
      {59min + 59s, "59m 59s"},
      {1h, "1h 0m 0s"},
      {1h + 5s, "1h 0m 5s"},
      {12h + 59min + 59s, "12h 59m 59s"},
      {kDay - 1s, "23h 59m 59s"},
      {kDay, "1d 0h 0m 0s"},
      {kDay + 5min + 3s, "1d 0h 5m 3s"},
      {400 * kDay + 23h + 1s, "400d 23h 0m 1s"},
  };
  for (const auto& row : rows) EXPECT_EQ(FormatUptime(row.uptime), row.text);
}

}  // namespace
}  // namespace vosk::console
