#pragma once

#include <string_view>

namespace vosk::net {

inline constexpr int kUnreadableVersion = -2;

// Returns 1 if `a` is newer than `b`, 0 if both are the same, -1 if `a` is older, and
// kUnreadableVersion if either does not begin with three numbers joined by dots. What follows the
// third number does not count; blanks and a sign may precede each number.
[[nodiscard]] int CompareVersions(std::string_view a, std::string_view b);

}  // namespace vosk::net
