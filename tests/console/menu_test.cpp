#include "console/menu.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "tests/support/console_scene.h"

namespace vosk::console {
namespace {

using support::ConsoleScene;
using support::Terminal;
using testing::HasSubstr;

// The row that carries the marker; 0 where none does.
int SelectedRow(const Terminal& terminal) {
  int selected = 0;
  for (int row = 1; row <= terminal.Rows(); ++row) {
    if (!terminal.RowText(row).starts_with(" >")) continue;
    EXPECT_EQ(selected, 0) << "two rows are marked";
    selected = row;
  }
  return selected;
}

TEST(Menu, KeepsToEveryWindowAndMarksTheSelectedItem) {
  const std::deque<std::string> recent(
      10, "\x1b[90m09:00:00\x1b[0m a line of the log, " + std::string(150, 'x') + "\u6f22\u5b57");
  for (const int width : {1, 2, 3, 4, 5, 20, 40, 79, 80, 81, 120}) {
    for (int height = 1; height <= 30; ++height) {
      for (int selection = 1; selection <= kMenuItems; ++selection) {
        Terminal terminal(width, height);
        for (int row = 1; row < height; ++row) terminal.Write("before\n");
        terminal.Write("\x1b[999;1H");
        const int scrolled_before = terminal.RowsScrolledOff();
        terminal.Write(BuildMenu({selection, false, recent}, width, height));

        const std::string where = fmt::format("{} x {}, item {}", width, height, selection);
        EXPECT_EQ(terminal.RowsScrolledOff(), scrolled_before) << where;
        EXPECT_EQ(terminal.RowText(height), "") << where << ": the status bar's row";
        EXPECT_TRUE(terminal.CursorVisible()) << where;
        if (height < 2 || width < 5) continue;
        const int selected = SelectedRow(terminal);
        ASSERT_NE(selected, 0) << where;
        EXPECT_EQ(terminal.RowText(selected)[3], '0' + selection) << where;
        EXPECT_THAT(terminal.RowBackground(selected), HasSubstr("reverse from 1 to")) << where;
      }
    }
  }
}

TEST(Menu, SmallWindowsLoseTheLeastImportantRowsFirst) {
  const std::deque<std::string> recent = {"older line", "newest line"};
  const auto rows_of = [&recent](int height) {
    Terminal terminal(80, height);
    terminal.Write(BuildMenu({1, true, recent}, 80, height));
    std::string all;
    for (int row = 1; row <= height; ++row) all += terminal.RowText(row) + "\n";
    return all;
  };
  // In the order in which a window that grows wins them back.
  struct {
    int height;
    std::string text;
  } const rows[] = {
      {2, "1. Restart VELDRAN Core"},
      {3, "2. Quit VOSK & VELDRAN Core"},
      {7, "6. Red Alert Mode: [ON]  - Full heap dumps active"},
      {8, "M. Toggle Menu/Logs"},
      {9, "VOSK Control Menu"},
      {10, "Use UP/DOWN arrows to navigate, ENTER to select."},
      {14, "newest line"},
      {15, "older line"},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(rows_of(row.height), HasSubstr(row.text));
    EXPECT_THAT(rows_of(row.height - 1), testing::Not(HasSubstr(row.text)));
  }
}

TEST(Menu, DrawsItselfWithOneWriteAndTheStatusBarWithAnother) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  EXPECT_EQ(scene.WritesOf([&] { scene.OpenMenu(1); }).size(), 2u);
  EXPECT_THAT(scene.Shown().RowText(25), HasSubstr("VOSK"));
}

TEST(Menu, DrawsNothingWithoutEscapeSequences) {
  ConsoleScene scene(80, 25);
  scene.log.SetConsoleOutputValid(false);
  EXPECT_TRUE(scene.WritesOf([&] { scene.OpenMenu(1); }).empty());
}

TEST(Menu, LinesLoggedWhileItIsOpenStayBelowIt) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  scene.OpenMenu(1);
  const std::string menu = support::ScreenText(scene.Shown());
  scene.log.LogError("not on the console");
  EXPECT_EQ(support::ScreenText(scene.Shown()), menu);
  // A progress line shows all the same, below the menu.
  scene.log.LogProgress("Download progress: 50%");
  EXPECT_THAT(support::ScreenText(scene.Shown()), HasSubstr("Download progress: 50%"));
  EXPECT_THAT(scene.Shown().RowText(1), HasSubstr("VOSK Control Menu"));
}

}  // namespace
}  // namespace vosk::console
