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
  // Keeps the upper left part, as far as it fits.
  void Resize(int columns, int rows);

  [[nodiscard]] int Columns() const { return columns_; }
  [[nodiscard]] int Rows() const { return rows_; }
  // Returns the row's text without the blanks at its end.
  [[nodiscard]] std::string RowText(int row) const;
  // Returns one letter for each column: the colour of the character, a capital if it is bold; '.'
  // for the terminal's own colour, a blank if there is nothing to see, '?' for what VOSK never
  // uses.
  [[nodiscard]] std::string RowInk(int row) const;
  // Returns the backgrounds of a row that are not the terminal's own: "blue from 1 to 80".
  [[nodiscard]] std::string RowBackground(int row) const;
  [[nodiscard]] int CursorRow() const { return Cursor().row + 1; }
  [[nodiscard]] int CursorColumn() const { return Cursor().col + 1; }
  [[nodiscard]] bool CursorVisible() const { return cursor_visible_; }
  // Returns how many rows have scrolled off the top of the screen.
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

// Returns the whole screen as plain text that a person can read.
[[nodiscard]] std::string ScreenText(const Terminal& terminal);

// Expects the screen that is stored as tests/console/screens/NAME.txt.
void ExpectScreen(const Terminal& terminal, const std::string& name);

}  // namespace vosk::support
