#include "console/screen.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "tests/support/console_scene.h"

namespace vosk::console {
namespace {

using support::ConsoleScene;
using support::Terminal;
using testing::HasSubstr;

TEST(Screen, ScrollsAboveTheBarInEveryWindowOfTwoRows) {
  for (const int rows : {2, 3, 10, 25}) {
    ConsoleScene scene(80, rows);
    scene.LayOut();
    for (int i = 1; i <= 40; ++i) scene.log.LogInfo(fmt::format("line {}", i));
    Terminal& terminal = scene.Shown();
    EXPECT_THAT(terminal.RowText(rows), HasSubstr("Core: ?"));
    EXPECT_EQ(terminal.CursorRow(), rows - 1);
    // The last line scrolled up when it ended.
    if (rows > 2) {
      EXPECT_THAT(terminal.RowText(rows - 2), HasSubstr("line 40"));
    }
    if (rows > 3) {
      EXPECT_THAT(terminal.RowText(rows - 3), HasSubstr("line 39"));
    }
  }
}

TEST(Screen, OneRowGetsNoScrollRegion) {
  ConsoleScene scene(80, 1);
  EXPECT_TRUE(scene.WritesOf([&] { scene.screen.SetupScrollRegion(); }).empty());
  scene.bar.DrawStatusBar();
  EXPECT_THAT(scene.WritesOf([&] { scene.log.LogInfo("line 1"); }),
              testing::Contains(HasSubstr("line 1")));
  EXPECT_THAT(scene.Shown().RowText(1), HasSubstr("Core: ?"));
}

TEST(Screen, AWindowOfOneRowGivesItsOldRegionUp) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  scene.Resize(80, 1);
  EXPECT_THAT(scene.WritesOf([&] { scene.screen.FollowWindowSize(); }),
              testing::ElementsAre("\x1b[r"));
  scene.Resize(70, 1);
  EXPECT_TRUE(scene.WritesOf([&] { EXPECT_TRUE(scene.screen.FollowWindowSize()); }).empty());
}

TEST(Screen, FollowsOnlyChanges) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  EXPECT_TRUE(scene.WritesOf([&] { EXPECT_FALSE(scene.screen.FollowWindowSize()); }).empty());
  // Scrolling the window over the buffer changes its place, not its size.
  scene.host.console.info.top += 100;
  scene.host.console.info.bottom += 100;
  EXPECT_FALSE(scene.screen.FollowWindowSize());
  scene.host.console.info.top += 5;
  EXPECT_THAT(scene.WritesOf([&] { EXPECT_TRUE(scene.screen.FollowWindowSize()); }),
              testing::ElementsAre("\x1b[1;19r\x1b[19;1H"));
  EXPECT_FALSE(scene.screen.FollowWindowSize());
}

TEST(Screen, SurvivesAWindowThatShrinksToNothingAndComesBack) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  const auto found = scene.host.console.info;
  for (const bool without_columns : {false, true}) {
    (without_columns ? scene.host.console.info.right : scene.host.console.info.bottom) = -1;
    EXPECT_TRUE(scene.WritesOf([&] { scene.Cycle(); }).empty());
    scene.log.LogInfo("goes on");
    scene.OpenMenu(6);
    scene.CloseMenu();
    scene.host.console.info = found;
    scene.Cycle();
    EXPECT_THAT(scene.Shown().RowText(25), HasSubstr("Core: ?"));
  }
}

TEST(Screen, ASizeThatCannotBeReadIsAskedForAgain) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  scene.Resize(80, 20);
  scene.host.FailNext("console.Info", 6);
  EXPECT_FALSE(scene.screen.FollowWindowSize());
  EXPECT_TRUE(scene.screen.FollowWindowSize());
}

TEST(Screen, EverySizeAfterEveryOtherKeepsOneBarAtTheBottom) {
  const std::pair<int, int> sizes[] = {{80, 25}, {120, 30}, {40, 10}, {20, 2}, {80, 1}, {100, 50}};
  for (const auto& [columns_before, rows_before] : sizes) {
    for (const auto& [columns, rows] : sizes) {
      ConsoleScene scene(columns_before, rows_before);
      scene.LayOut();
      for (int i = 1; i <= 12; ++i) scene.log.LogInfo(fmt::format("line {}", i));
      scene.Resize(columns, rows);
      scene.Cycle();
      scene.log.LogInfo("line after");
      Terminal& terminal = scene.Shown();
      const std::string where = fmt::format("{} x {} -> {} x {}\n{}", columns_before, rows_before,
                                            columns, rows, support::ScreenText(terminal));
      EXPECT_THAT(terminal.RowText(rows), HasSubstr("Core: ?")) << where;
      for (int row = 1; row < rows; ++row) EXPECT_EQ(terminal.RowBackground(row), "") << where;
      if (rows > 2) {
        EXPECT_THAT(terminal.RowText(rows - 2), HasSubstr("line after")) << where;
      }
    }
  }
}

TEST(Screen, ReleasesTheWholeWindow) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  scene.screen.Release();
  Terminal& terminal = scene.Shown();
  terminal.Write(std::string(24, '\n') + "last row");
  EXPECT_EQ(terminal.RowText(25), "last row");
  EXPECT_EQ(terminal.RowBackground(25), "");
  terminal.Write("\n");
  EXPECT_EQ(terminal.RowText(24), "last row");
}

}  // namespace
}  // namespace vosk::console
