// What the operator sees, screen by screen, compared with tests/console/screens/.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "console/boot_animation.h"
#include "tests/support/console_scene.h"

namespace vosk::console {
namespace {

using namespace std::chrono_literals;
using support::ConsoleScene;
using support::ExpectScreen;

constexpr std::pair<int, int> kSizes[] = {{80, 25}, {120, 30}, {40, 10}, {20, 2}, {80, 1}};

std::string NameFor(std::string_view what, std::pair<int, int> size) {
  return fmt::format("{}_{}x{}", what, size.first, size.second);
}

// A console on which a Core runs.
struct RunningScene : ConsoleScene {
  RunningScene(int columns, int rows) : ConsoleScene(columns, rows) {
    LayOut();
    CoreRuns();
    LogCrashAndRelaunch();
    Cycle();
  }
};

TEST(Screens, BootAnimationHalfWay) {
  ConsoleScene scene(80, 25);
  scene.host.At(10 * kBootFrameTime, [&](support::SimulatedHost&) {
    ExpectScreen(scene.Shown(), "boot_half_way_80x25");
  });
  PlayBootAnimation(scene.host.console, scene.host.clock, scene.log, scene.random);
}

TEST(Screens, Start) {
  for (const auto& size : {std::pair{80, 25}, std::pair{40, 10}}) {
    ConsoleScene scene(size.first, size.second);
    scene.Start();
    ExpectScreen(scene.Shown(), NameFor("start", size));
  }
}

TEST(Screens, RunningCore) {
  for (const auto& size : kSizes) {
    RunningScene scene(size.first, size.second);
    ExpectScreen(scene.Shown(), NameFor("running", size));
  }
}

TEST(Screens, NoCore) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  scene.log.LogInfo("--- Target process is not running ---");
  ExpectScreen(scene.Shown(), "no_core_80x25");
}

TEST(Screens, TransferInProgress) {
  for (const auto& size : {std::pair{80, 25}, std::pair{40, 10}}) {
    RunningScene scene(size.first, size.second);
    scene.progress.Begin("Uploading");
    scene.progress.Set(42.4);
    scene.log.LogProgress("Upload progress: 42%");
    scene.Cycle();
    ExpectScreen(scene.Shown(), NameFor("transfer", size));
  }
}

TEST(Screens, RedAlert) {
  for (const auto& size : {std::pair{80, 25}, std::pair{120, 30}, std::pair{40, 10}}) {
    RunningScene scene(size.first, size.second);
    scene.status.red_alert = true;
    scene.progress.Begin("Zipping");
    scene.progress.Set(7.0);
    scene.Cycle();
    ExpectScreen(scene.Shown(), NameFor("red_alert", size));
  }
}

TEST(Screens, MenuAtEachSelection) {
  RunningScene scene(80, 25);
  for (int selection = 1; selection <= kMenuItems; ++selection) {
    scene.OpenMenu(selection);
    ExpectScreen(scene.Shown(), fmt::format("menu_item_{}_80x25", selection));
  }
}

TEST(Screens, MenuInRedAlert) {
  RunningScene scene(80, 25);
  scene.status.red_alert = true;
  scene.OpenMenu(6);
  ExpectScreen(scene.Shown(), "menu_red_alert_80x25");
}

TEST(Screens, MenuInOtherWindows) {
  for (const auto& size : kSizes) {
    if (size.first == 80 && size.second == 25) continue;
    RunningScene scene(size.first, size.second);
    scene.OpenMenu(4);
    ExpectScreen(scene.Shown(), NameFor("menu", size));
  }
}

TEST(Screens, MenuAfterTenAndElevenLines) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  scene.OpenMenu(1);
  for (int i = 1; i <= 10; ++i) scene.log.LogInfo(fmt::format("line {}", i));
  scene.OpenMenu(1);
  ExpectScreen(scene.Shown(), "menu_ten_lines_80x25");
  scene.log.LogWarn("line 11");
  scene.OpenMenu(1);
  ExpectScreen(scene.Shown(), "menu_eleven_lines_80x25");
  // Back in the log, the next line is the first to be seen.
  scene.CloseMenu();
  scene.log.LogInfo("line 12");
  ExpectScreen(scene.Shown(), "menu_closed_80x25");
}

TEST(Screens, ResizeInBetween) {
  RunningScene scene(80, 25);
  scene.Resize(120, 30);
  scene.Cycle();
  scene.log.LogInfo("the window has grown");
  ExpectScreen(scene.Shown(), "resized_to_120x30");
  scene.Resize(40, 10);
  scene.Cycle();
  scene.log.LogInfo("the window has shrunk");
  ExpectScreen(scene.Shown(), "resized_to_40x10");
  scene.OpenMenu(2);
  scene.Resize(80, 25);
  scene.Cycle();
  ExpectScreen(scene.Shown(), "menu_resized_to_80x25");
}

TEST(Screens, LinesLongerThanTheWindow) {
  ConsoleScene scene(40, 10);
  scene.LayOut();
  scene.log.LogInfo("short");
  scene.log.LogInfo(
      "Target Process: C:\\Program Files\\VELDRAN Inc\\VELDRAN Core\\VELDRAN Core.exe");
  scene.log.LogWarn("not only ASCII: gr\u00fc\u00df dich, \u6f22\u5b57\u6f22\u5b57\u6f22\u5b57");
  ExpectScreen(scene.Shown(), "long_lines_40x10");
  scene.Resize(40, 20);
  scene.OpenMenu(1);
  ExpectScreen(scene.Shown(), "menu_long_lines_40x20");
}

TEST(Screens, ColourOff) {
  ConsoleScene scene(80, 25);
  scene.host.console.Redirect(platform::StandardStream::output, support::StreamTarget::redirected);
  scene.host.console.Redirect(platform::StandardStream::error, support::StreamTarget::redirected);
  scene.log.EnableVirtualTerminal();
  scene.Start();
  scene.CoreRuns();
  scene.LogCrashAndRelaunch();
  scene.OpenMenu(1);
  scene.Cycle();
  ExpectScreen(scene.Shown(), "colour_off_80x25");
}

}  // namespace
}  // namespace vosk::console
