// A terminal emulator that shows what VOSK wrote.
#pragma once

#include <vterm.h>

#include <memory>
#include <string>
#include <string_view>

namespace vosk::support {

// Rows and columns count from 1. "\n" returns to the first column too, as on a Windows console.
class Terminal {
 public:
  Terminal(int columns, int rows);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void Write(std::string_view bytes);
  // Keeps what stands in the upper left, as far as it fits.
  void Resize(int columns, int rows);

  [[nodiscard]] int Columns() const { return columns_; }
  [[nodiscard]] int Rows() const { return rows_; }
  // The row's text without the blanks at its end.
  [[nodiscard]] std::string RowText(int row) const;
  // One letter for each column: the colour of the character, capital where it is bold; '.' for the
  // terminal's own colour, a blank where nothing is to be seen, '?' for what VOSK never uses.
  [[nodiscard]] std::string RowInk(int row) const;
  // The backgrounds of a row that are not the terminal's own: "blue from 1 to 80".
  [[nodiscard]] std::string RowBackground(int row) const;
  [[nodiscard]] int CursorRow() const { return Cursor().row + 1; }
  [[nodiscard]] int CursorColumn() const { return Cursor().col + 1; }
  [[nodiscard]] bool CursorVisible() const { return cursor_visible_; }
  // How many rows have left the screen over its top.
  [[nodiscard]] int RowsScrolledOff() const { return rows_scrolled_off_; }

 private:
  [[nodiscard]] VTermPos Cursor() const;
  [[nodiscard]] VTermScreenCell Cell(int row, int column) const;

  struct Closer {
    void operator()(VTerm* terminal) const { vterm_free(terminal); }
  };
  std::unique_ptr<VTerm, Closer> terminal_;
  VTermScreen* screen_;
  int columns_;
  int rows_;
  bool cursor_visible_ = true;
  int rows_scrolled_off_ = 0;
};

// The whole screen as plain text that a person can read.
[[nodiscard]] std::string ScreenText(const Terminal& terminal);

// Expects the screen that is stored as tests/console/screens/NAME.txt.
void ExpectScreen(const Terminal& terminal, const std::string& name);

}  // namespace vosk::support
