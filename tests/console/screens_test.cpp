// Compares what the operator sees, screen by screen, with tests/console/screens/.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "console/boot_animation.h"
#include "tests/support/console_scene.h"

namespace vosk::console {
namespace {

using support::ConsoleScene;
using support::ExpectScreen;

// A console on which a Core runs.
struct RunningScene : ConsoleScene {
  RunningScene(int columns, int rows) : ConsoleScene(columns, rows) {
    LayOut();
    LogCrashAndRelaunch();
    Cycle();
  }
};

TEST(Screens, BootAnimation) {
  ConsoleScene scene(80, 25);
  scene.host.At(10 * kBootFrameTime, [&](support::SimulatedHost&) {
    ExpectScreen(scene.Shown(), "boot_half_way_80x25");
  });
  scene.Start();
  ExpectScreen(scene.Shown(), "start_80x25");
}

TEST(Screens, BootAnimationInAWindowThatShrinks) {
  ConsoleScene scene(80, 25);
  scene.host.At(10 * kBootFrameTime, [&](support::SimulatedHost&) { scene.Resize(40, 10); });
  scene.Start();
  ExpectScreen(scene.Shown(), "start_40x10");
}

TEST(Screens, RunningCore) {
  for (const auto& [columns, rows] : {std::pair{80, 25}, {40, 10}, {20, 2}, {80, 1}}) {
    RunningScene scene(columns, rows);
    ExpectScreen(scene.Shown(), fmt::format("running_{}x{}", columns, rows));
  }
}

TEST(Screens, TransferAndRedAlert) {
  RunningScene scene(80, 25);
  scene.progress.Begin("Uploading");
  scene.progress.Set(42.4);
  scene.log.LogProgress("Upload progress: 42%");
  scene.Cycle();
  ExpectScreen(scene.Shown(), "transfer_80x25");
  scene.progress.Reset();
  scene.status.red_alert = true;
  scene.Cycle();
  ExpectScreen(scene.Shown(), "red_alert_80x25");
  scene.OpenMenu(6);
  ExpectScreen(scene.Shown(), "menu_red_alert_80x25");
}

TEST(Screens, Menu) {
  RunningScene scene(80, 25);
  scene.OpenMenu(1);
  ExpectScreen(scene.Shown(), "menu_item_1_80x25");
  scene.log.LogInfo("stays below the menu");
  scene.log.LogProgress("shows over it");
  ExpectScreen(scene.Shown(), "menu_and_progress_80x25");
  scene.OpenMenu(2);
  scene.CloseMenu();
  scene.log.LogInfo("the first line after the menu");
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
  scene.log.LogWarn("not only ASCII: gr\u00fc\u00df dich, \u6f22\u5b57\u6f22\u5b57\u6f22\u5b57");
  ExpectScreen(scene.Shown(), "resized_to_40x10");
  scene.OpenMenu(2);
  scene.Resize(80, 25);
  scene.Cycle();
  ExpectScreen(scene.Shown(), "menu_resized_to_80x25");
}

}  // namespace
}  // namespace vosk::console
