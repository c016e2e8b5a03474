#include "console/menu.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "console/colours.h"
#include "console/display_text.h"
#include "console/screen.h"
#include "console/styled_line.h"

namespace vosk::console {
namespace {

// A small window loses the older recent lines first, then blanks, and so on. An item ranks lower
// the farther it is from the selected one.
namespace rank {
constexpr int kOldestRecentLine = 0;
constexpr int kBlank = 100;
constexpr int kHint = 200;
constexpr int kTitle = 300;
constexpr int kToggle = 400;
constexpr int kItem = 500;
}  // namespace rank

constexpr std::array<std::string_view, kMenuItems> kItems = {
    "1. Restart VELDRAN Core",     "2. Quit VOSK & VELDRAN Core",     "3. Version Information",
    "4. Submit Diagnostic Report", "5. Force Reinstall VELDRAN Core", "6. Red Alert Mode: "};
constexpr int kRedAlertItem = 6;
constexpr std::string_view kRedAlertOn = "[ON]  - Full heap dumps active";
constexpr std::string_view kRedAlertOff = "[OFF] - Enable full heap dumps on crash";
// The selected row is as long as the longest item, whichever it is.
constexpr int kItemWidth = 3 + static_cast<int>(kItems.back().size() + kRedAlertOff.size()) + 1;

std::string TextRow(std::string_view style, std::string_view text, int columns) {
  StyledLine line(columns);
  line.Add(style, text);
  return line.Bytes();
}

std::string ItemRow(int item, const MenuContents& contents, int columns) {
  const bool selected = item == contents.selection;
  const auto style = [selected](std::string_view colour) {
    return selected ? fmt::format("{}{}{}", kBold, kReverse, colour) : std::string(colour);
  };
  const std::string_view state_colour = contents.red_alert ? kRed : kGreen;
  const bool has_state = item == kRedAlertItem;
  StyledLine line(columns);
  line.Add(style(kYellow), selected ? " > " : "   ");
  line.Add(style(kYellow), kItems[item - 1]);
  if (has_state) line.Add(style(state_colour), contents.red_alert ? kRedAlertOn : kRedAlertOff);
  if (selected) {
    line.PadTo(style(has_state ? state_colour : kYellow), std::min(kItemWidth, columns));
  }
  return line.Bytes();
}

Picture MenuPicture(const MenuContents& contents, int columns) {
  Picture picture;
  picture.Add(rank::kTitle, TextRow(kBoldCyan, " VOSK Control Menu", columns));
  picture.Add(rank::kBlank, "");
  for (int item = 1; item <= kMenuItems; ++item) {
    picture.Add(rank::kItem - std::abs(item - contents.selection),
                ItemRow(item, contents, columns));
  }
  picture.Add(rank::kToggle, TextRow(kYellow, "   M. Toggle Menu/Logs", columns));
  picture.Add(rank::kBlank, "");
  picture.Add(rank::kHint,
              TextRow(kWhite, " Use UP/DOWN arrows to navigate, ENTER to select.", columns));
  picture.Add(rank::kBlank, "");
  int age_rank = rank::kOldestRecentLine;
  for (const std::string& line : contents.recent_lines) {
    picture.Add(age_rank++, TextRow(kGrey, PlainText(line), columns));
  }
  return picture;
}

}  // namespace

std::string BuildMenu(const MenuContents& contents, int window_width, int window_height) {
  // The bottom row is the status bar's.
  const int rows = std::max(window_height - 1, 0);
  Picture picture = MenuPicture(contents, UsableColumns(window_width));
  picture.FitHeight(rows);
  const int cursor_row = std::clamp(picture.Height() + 1, 1, std::max(rows, 1));
  // Erasing from the top to the end, unlike erasing the whole window at once, does not push a copy
  // of the menu into the console's scrollback at every key.
  return fmt::format("\x1b[?25l{}\x1b[H\x1b[J{}\x1b[{};1H\x1b[?25h", kReset, picture.Bytes(),
                     cursor_row);
}

Menu::Menu(platform::Console& console, LogSink& log) : console_(console), log_(log) {}

void Menu::RenderMenu(int selection, bool red_alert) {
  const std::lock_guard lock(log_.ConsoleLock());
  const auto window = DrawableWindow(console_, log_);
  if (!window) return;
  const MenuContents contents{selection, red_alert, log_.RecentLogLines()};
  console_.Write(platform::StandardStream::output,
                 BuildMenu(contents, window->Width(), window->Height()));
  log_.RedrawStatusBar();
}

}  // namespace vosk::console
