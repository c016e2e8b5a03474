#pragma once

#include <string_view>

namespace vosk::net {

inline constexpr int kUnreadableVersion = -2;

// 1 where `a` is newer than `b`, 0 where both are the same, -1 where `a` is older, and
// kUnreadableVersion where either does not begin with three numbers joined by dots. What follows
// the third number does not count; blanks and a sign may stand before each number.
[[nodiscard]] int CompareVersions(std::string_view a, std::string_view b);

}  // namespace vosk::net
