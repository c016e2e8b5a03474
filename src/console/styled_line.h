// Lines and pictures of coloured text that keep to a window's width and height.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vosk::console {

// One row, built from left to right; text beyond its columns is cut off.
class StyledLine {
 public:
  explicit StyledLine(int columns) : columns_(columns) {}

  // Adds plain text in its own style; earlier styles do not carry over.
  void Add(std::string_view style, std::string_view text);
  // Adds blanks in that style until the row takes `width` columns.
  void PadTo(std::string_view style, int width);

  [[nodiscard]] int Width() const { return width_; }
  // Returns true if something had to be cut off.
  [[nodiscard]] bool IsClipped() const { return clipped_; }
  // Returns the row with its escape sequences; its last style is still on.
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

  // Drops the rows of the lowest ranks until `height` are left; of equal ranks the upper row goes
  // first.
  void FitHeight(int height);

  [[nodiscard]] int Height() const { return static_cast<int>(rows_.size()); }
  // Returns every row at its absolute place, each reset at its end. There are no line ends, so that
  // nothing scrolls.
  [[nodiscard]] std::string Bytes() const;

 private:
  struct Row {
    int rank;
    std::string bytes;
  };
  std::vector<Row> rows_;
};

// Returns how many columns rows may fill. The last one stays free: once it has been written to, a
// terminal may wrap or erase it.
[[nodiscard]] constexpr int UsableColumns(int window_width) {
  return window_width - 1;
}

}  // namespace vosk::console
