// What fits into windows of every size: tests/console/layouts_*.txt list for each size only what is
// new since the one before it.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>

#include "console/boot_animation.h"
#include "console/display_text.h"
#include "console/menu.h"
#include "console/status_bar.h"
#include "tests/support/stored_text.h"
#include "tests/support/terminal.h"

namespace vosk::console {
namespace {

using namespace std::chrono_literals;
using support::ExpectStoredText;
using support::Terminal;

// Draws the row in windows of every width, within which it must stay, and returns the rows that
// differ.
std::string ByWidth(const StatusSnapshot& status, const TransferProgress& progress) {
  std::string text;
  std::string before;
  for (int width = 1; width <= 250; ++width) {
    Terminal terminal(width, 3);
    const std::string bytes = BuildStatusRow(status, progress, width);
    terminal.Write("\x1b[2;1H" + bytes);
    const std::string row = terminal.RowText(2);
    if (row != before) text += fmt::format("{:4} |{}\n", width, row);
    before = row;
    EXPECT_EQ(terminal.RowText(3), "") << row;
    // Some terminals wrap at once if the last column is written to.
    EXPECT_LT(DisplayWidth(PlainText(bytes)), width) << row;
    EXPECT_TRUE(terminal.RowBackground(2).ends_with(fmt::format(" to {}", width))) << row;
  }
  return text + '\n';
}

TEST(Layouts, OfTheStatusBar) {
  const StatusSnapshot running{
      .core_pid = 4711, .core_version = "1.2.3a", .crash_count = 1, .uptime = 3723s};
  const StatusSnapshot long_running{
      .core_pid = 999'996, .core_version = "12.34.5b", .crash_count = 9'999, .uptime = 46'799s};
  StatusSnapshot alert = running;
  alert.red_alert = true;
  const StatusSnapshot absurd{.core_pid = 4'294'967'295u,
                              .core_version = "1.2.3a\x1b[2J\nand a long tail of text",
                              .crash_count = std::numeric_limits<std::int64_t>::max(),
                              .uptime = 24h * 99'999,
                              .red_alert = true};
  TransferProgress progress;
  const StatusSnapshot waiting{.core_version = "1.2.3", .crash_count = 7, .next_launch = 295s};
  std::string text = ByWidth({.core_version = "0.0.0"}, progress) + ByWidth(running, progress) +
                     ByWidth(long_running, progress) + ByWidth(alert, progress) +
                     ByWidth(waiting, progress);
  progress.Begin("Zipping");
  text += ByWidth(running, progress);
  progress.SetLabel("Downloading");
  progress.Set(99.9);
  text += ByWidth(alert, progress);
  progress.SetLabel("A label that is far too long for its field");
  ExpectStoredText("console/layouts_of_status_bar.txt", text + ByWidth(absurd, progress));
}

// Draws into windows of every height, full of text. The status bar's row must stay free. Returns
// the rows that a window one line lower did not show.
std::string ByHeight(int width, const std::function<std::string(int height)>& draw) {
  std::string text = fmt::format("{} columns\n", width);
  std::set<std::string> before;
  for (int height = 1; height <= 30; ++height) {
    Terminal terminal(width, height);
    terminal.Write("\x1b[999;1H");
    terminal.Write(draw(height));
    std::set<std::string> rows;
    for (int row = 1; row <= height; ++row) {
      rows.insert(terminal.RowText(row));
      if (!before.contains(terminal.RowText(row)))
        text += fmt::format("{:4} |{}\n", height, terminal.RowText(row));
    }
    before = rows;
    EXPECT_EQ(terminal.RowsScrolledOff(), 0) << width << " x " << height;
    EXPECT_EQ(terminal.RowText(height), "") << width << " x " << height;
    EXPECT_TRUE(terminal.CursorVisible()) << width << " x " << height;
  }
  return text + '\n';
}

TEST(Layouts, OfTheMenu) {
  const std::deque<std::string> recent = {"\x1b[90m09:00:00\x1b[0m older, " + std::string(150, 'x'),
                                          "newest \u6f22\u5b57"};
  std::string text;
  for (const auto& [width, selection] : {std::pair{80, 1}, {80, 4}, {25, 6}, {5, 6}, {1, 1}}) {
    text += ByHeight(width, [&](int height) {
      return BuildMenu({selection, selection == 1, recent}, width, height);
    });
  }
  ExpectStoredText("console/layouts_of_menu.txt", text);
}

TEST(Layouts, OfTheBootAnimation) {
  std::mt19937 random(7);
  const auto phrases = ChooseBootPhrases(random);
  std::string text;
  for (const int width : {1, 20, 64, 65}) {
    text += ByHeight(width, [&](int height) {
      std::string frames;
      for (int frame = 0; frame < kBootFrames; ++frame) {
        frames += BuildBootFrame(frame, phrases, width, height, random);
      }
      return frames;
    });
  }
  ExpectStoredText("console/layouts_of_boot_animation.txt", text);
}

TEST(BootPhrases, EachHasItsTurnAndNoneComesTwice) {
  std::mt19937 random(1);
  std::set<std::string_view> seen;
  for (int i = 0; i < 200; ++i) {
    const auto phrases = ChooseBootPhrases(random);
    EXPECT_EQ(std::set(phrases.begin(), phrases.end()).size(), phrases.size());
    seen.insert(phrases.begin(), phrases.end());
  }
  EXPECT_EQ(seen.size(), 12u);
}

}  // namespace
}  // namespace vosk::console
