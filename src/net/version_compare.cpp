#include "net/version_compare.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <optional>

namespace vosk::net {
namespace {

using Triple = std::array<std::int32_t, 3>;

bool IsBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Takes one number off the front of the text. One beyond 32 bits counts as the nearest that fits.
std::optional<std::int32_t> TakeNumber(std::string_view& text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
  if (text.empty() || !IsDigit(text.front())) return std::nullopt;

  using Limits = std::numeric_limits<std::int32_t>;
  constexpr std::int64_t kFarthest = std::int64_t{Limits::max()} + 1;
  std::int64_t magnitude = 0;
  for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1)) {
    magnitude = std::min(kFarthest, magnitude * 10 + (text.front() - '0'));
  }
  if (negative) return static_cast<std::int32_t>(-magnitude);
  return static_cast<std::int32_t>(std::min<std::int64_t>(magnitude, Limits::max()));
}

std::optional<Triple> ReadTriple(std::string_view text) {
  Triple triple{};
  for (std::size_t i = 0; i < triple.size(); ++i) {
    if (i > 0) {
      if (text.empty() || text.front() != '.') return std::nullopt;
      text.remove_prefix(1);
    }
    const auto number = TakeNumber(text);
    if (!number) return std::nullopt;
    triple[i] = *number;
  }
  return triple;
}

}  // namespace

int CompareVersions(std::string_view a, std::string_view b) {
  const auto left = ReadTriple(a);
  const auto right = ReadTriple(b);
  if (!left || !right) return kUnreadableVersion;
  if (*left == *right) return 0;
  return *left < *right ? -1 : 1;
}

}  // namespace vosk::net
