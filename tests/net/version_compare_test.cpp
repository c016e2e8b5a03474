#include "net/version_compare.h"

#include <gtest/gtest.h>

namespace vosk::net {
namespace {

TEST(CompareVersions, ReadsThreeNumbersAndNothingElse) {
  const std::tuple<std::string_view, std::string_view, int> rows[] = {
      {"1.10.0", "1.9.9", 1},
      {"2.0.0", "1.99.99", 1},
      {"1.2.4", "1.2.3", 1},
      {"0.0.0", "0.0.0", 0},
      {"01.002.3", "1.2.3", 0},
      // What follows the third number does not count.
      {"1.2.3b", "1.2.3", 0},
      {"1.2.3.9", "1.2.3.4", 0},
      // Blanks and signs before a number.
      {" 1. 2.\t3", "1.2.3", 0},
      {"+1.+2.+3", "1.2.3", 0},
      {"1.2.-3", "1.2.0", -1},
      // Numbers beyond 32 bits.
      {"1.0.2147483648", "1.0.2147483647", 0},
      {"1.0.99999999999999999999", "1.0.5", 1},
      {"1.0.-99999999999999999999", "1.0.-5", -1},
      // Unreadable.
      {"1.2", "1.2.0", kUnreadableVersion},
      {"", "1.2.0", kUnreadableVersion},
      {"1..3", "1.2.0", kUnreadableVersion},
      {"1 .2.3", "1.2.3", kUnreadableVersion},
      {"1,2,3", "1.2.3", kUnreadableVersion},
      {"0x1.2.3", "1.2.3", kUnreadableVersion},
      {"1.- 2.3", "1.2.3", kUnreadableVersion},
      {"1.+-2.3", "1.2.3", kUnreadableVersion},
  };
  for (const auto& [a, b, outcome] : rows) {
    EXPECT_EQ(CompareVersions(a, b), outcome) << a << " and " << b;
    const int other_way = outcome == kUnreadableVersion ? outcome : -outcome;
    EXPECT_EQ(CompareVersions(b, a), other_way) << b << " and " << a;
  }
}

}  // namespace
}  // namespace vosk::net
