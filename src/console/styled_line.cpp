#include "console/styled_line.h"

#include <fmt/format.h>

#include <algorithm>

#include "console/colours.h"
#include "console/display_text.h"

namespace vosk::console {

void StyledLine::Add(std::string_view style, std::string_view text) {
  const std::string_view fitting = ClipToWidth(text, columns_ - width_);
  clipped_ = clipped_ || fitting.size() < text.size();
  if (fitting.empty()) return;
  if (bytes_.empty() || style != style_) bytes_ += fmt::format("{}{}", kReset, style);
  style_ = style;
  bytes_ += fitting;
  width_ += DisplayWidth(fitting);
}

void StyledLine::PadTo(std::string_view style, int width) {
  if (width > width_) Add(style, std::string(width - width_, ' '));
}

void Picture::FitHeight(int height) {
  while (!rows_.empty() && Height() > height) {
    rows_.erase(std::min_element(rows_.begin(), rows_.end(), [](const Row& one, const Row& other) {
      return one.rank < other.rank;
    }));
  }
}

std::string Picture::Bytes() const {
  std::string bytes;
  int row = 0;
  for (const Row& content : rows_) {
    bytes += fmt::format("\x1b[{};1H{}{}", ++row, content.bytes, kReset);
  }
  return bytes;
}

}  // namespace vosk::console
