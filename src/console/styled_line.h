// Lines and pictures of coloured text that keep to a window's width and height.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vosk::console {

// One row, built from left to right; what goes beyond its columns is cut off.
class StyledLine {
 public:
  explicit StyledLine(int columns) : columns_(columns) {}

  // Adds plain text in a style of its own: nothing of the styles before it stays.
  void Add(std::string_view style, std::string_view text);
  // Adds blanks in that style until the row takes `width` columns.
  void PadTo(std::string_view style, int width);

  [[nodiscard]] int Width() const { return width_; }
  // True when something had to be cut off.
  [[nodiscard]] bool IsClipped() const { return clipped_; }
  // The row with its escape sequences; the style of its end is still on.
  [[nodiscard]] const std::string& Bytes() const { return bytes_; }

 private:
  int columns_;
  int width_ = 0;
  bool clipped_ = false;
  std::string style_;
  std::string bytes_;
};

// Rows from the top of the window down, each with a rank.
class Picture {
 public:
  void Add(int rank, std::string row_bytes) { rows_.push_back({rank, std::move(row_bytes)}); }

  // Gives up the rows of the lowest ranks, the upper one of equals first, until `height` are left.
  void FitHeight(int height);

  [[nodiscard]] int Height() const { return static_cast<int>(rows_.size()); }
  // Every row at its absolute place, each reset at its end. No line ends, so that nothing scrolls.
  [[nodiscard]] std::string Bytes() const;

 private:
  struct Row {
    int rank;
    std::string bytes;
  };
  std::vector<Row> rows_;
};

// The columns that rows may fill in a window. The last one stays free: a terminal may wrap, or
// erase what stands there, once it has been written to.
[[nodiscard]] constexpr int UsableColumns(int window_width) {
  return window_width - 1;
}

}  // namespace vosk::console
