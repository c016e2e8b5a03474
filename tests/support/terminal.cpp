#include "tests/support/terminal.h"

#include <fmt/format.h>

#include <cctype>

#include "tests/support/stored_text.h"
#include "text/utf.h"

namespace vosk::support {
namespace {

constexpr std::string_view kNewlineReturnsToo = "\x1b[20h";
constexpr int kFirstBrightColour = 8;
// The bright colours by number.
constexpr std::string_view kInkLetters = "krgybmcw";
constexpr std::string_view kInkLegend =
    "k grey, r red, g green, y yellow, b blue, m magenta, c cyan, w white; capitals are bold";
constexpr const char* kBackgroundNames[] = {"black", "red",     "green", "yellow",
                                            "blue",  "magenta", "cyan",  "white"};
// What libvterm puts into the second column of a wide character.
constexpr std::uint32_t kSecondHalf = 0xFFFF'FFFF;

bool IsBlank(const VTermScreenCell& cell) {
  return (cell.chars[0] == 0 || cell.chars[0] == ' ') && cell.attrs.reverse == 0;
}

char InkOf(const VTermScreenCell& cell) {
  if (IsBlank(cell)) return ' ';
  if (VTERM_COLOR_IS_DEFAULT_FG(&cell.fg)) return cell.attrs.bold ? '?' : '.';
  const int bright = cell.fg.indexed.idx - kFirstBrightColour;
  if (!VTERM_COLOR_IS_INDEXED(&cell.fg) || bright < 0 || bright > 7) return '?';
  const char letter = kInkLetters[bright];
  return cell.attrs.bold ? static_cast<char>(std::toupper(letter)) : letter;
}

std::string BackgroundOf(const VTermScreenCell& cell) {
  if (cell.attrs.reverse) return "reverse";
  if (VTERM_COLOR_IS_DEFAULT_BG(&cell.bg)) return "";
  const bool named = VTERM_COLOR_IS_INDEXED(&cell.bg) && cell.bg.indexed.idx < kFirstBrightColour;
  return named ? kBackgroundNames[cell.bg.indexed.idx] : "?";
}

std::string Frame(const Terminal& terminal, std::string (Terminal::*row_of)(int) const) {
  const std::string edge = fmt::format("+{:-<{}}+\n", "", terminal.Columns());
  std::string frame = edge;
  for (int row = 1; row <= terminal.Rows(); ++row) {
    frame += fmt::format("|{:<{}}|\n", (terminal.*row_of)(row), terminal.Columns());
  }
  return frame + edge;
}

}  // namespace

Terminal::Terminal(int columns, int rows)
    : terminal_(vterm_new(rows, columns)),
      screen_(vterm_obtain_screen(terminal_.get())),
      columns_(columns),
      rows_(rows) {
  vterm_set_utf8(terminal_.get(), 1);
  static const VTermScreenCallbacks callbacks{
      .damage = nullptr,
      .moverect = nullptr,
      .movecursor = nullptr,
      .settermprop =
          [](VTermProp property, VTermValue* value, void* self) {
            if (property == VTERM_PROP_CURSORVISIBLE) {
              static_cast<Terminal*>(self)->cursor_visible_ = value->boolean != 0;
            }
            return 1;
          },
      .bell = nullptr,
      .resize = nullptr,
      .sb_pushline =
          [](int, const VTermScreenCell*, void* self) {
            ++static_cast<Terminal*>(self)->rows_scrolled_off_;
            return 1;
          },
      .sb_popline = nullptr};
  vterm_screen_set_callbacks(screen_, &callbacks, this);
  vterm_screen_reset(screen_, 1);
  Write(kNewlineReturnsToo);
}

void Terminal::Write(std::string_view bytes) {
  vterm_input_write(terminal_.get(), bytes.data(), bytes.size());
}

void Terminal::Resize(int columns, int rows) {
  columns_ = columns;
  rows_ = rows;
  vterm_set_size(terminal_.get(), rows, columns);
}

VTermPos Terminal::Cursor() const {
  VTermPos cursor{};
  vterm_state_get_cursorpos(vterm_obtain_state(terminal_.get()), &cursor);
  return cursor;
}

VTermScreenCell Terminal::Cell(int row, int column) const {
  VTermScreenCell cell{};
  vterm_screen_get_cell(screen_, {row - 1, column - 1}, &cell);
  return cell;
}

std::string Terminal::RowText(int row) const {
  std::string text;
  for (int column = 1; column <= columns_; ++column) {
    const VTermScreenCell cell = Cell(row, column);
    if (cell.chars[0] == kSecondHalf) continue;
    if (cell.chars[0] == 0) text += ' ';
    for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i] != 0; ++i) {
      text::AppendUtf8(cell.chars[i], text);
    }
  }
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string Terminal::RowInk(int row) const {
  std::string ink;
  for (int column = 1; column <= columns_; ++column) ink += InkOf(Cell(row, column));
  return ink;
}

std::string Terminal::RowBackground(int row) const {
  std::string runs;
  for (int column = 1, first = 1; column <= columns_; first = column) {
    const std::string background = BackgroundOf(Cell(row, first));
    while (column <= columns_ && BackgroundOf(Cell(row, column)) == background) ++column;
    if (background.empty()) continue;
    runs +=
        fmt::format("{}{} from {} to {}", runs.empty() ? "" : ", ", background, first, column - 1);
  }
  return runs;
}

std::string ScreenText(const Terminal& terminal) {
  std::string text = fmt::format("{} x {}, cursor {} at row {}, column {}\n\n", terminal.Columns(),
                                 terminal.Rows(), terminal.CursorVisible() ? "shown" : "hidden",
                                 terminal.CursorRow(), terminal.CursorColumn());
  text += Frame(terminal, &Terminal::RowText);
  text += fmt::format("\nInk: {}\n\n", kInkLegend);
  text += Frame(terminal, &Terminal::RowInk);
  text += "\nBackgrounds:\n";
  for (int row = 1; row <= terminal.Rows(); ++row) {
    const std::string runs = terminal.RowBackground(row);
    if (!runs.empty()) text += fmt::format("row {}: {}\n", row, runs);
  }
  return text;
}

void ExpectScreen(const Terminal& terminal, const std::string& name) {
  ExpectStoredText("console/screens/" + name + ".txt", ScreenText(terminal));
}

}  // namespace vosk::support
