#include "tests/support/console_scene.h"

#include <fmt/format.h>

#include "console/boot_animation.h"
#include "console/colours.h"

namespace vosk::support {

using namespace std::chrono_literals;

ConsoleScene::ConsoleScene(int columns, int rows) : terminal_(columns, rows) {
  host.console.info.right = columns - 1;
  host.console.info.bottom = rows - 1;
  log.EnableVirtualTerminal();
  log.SetConsoleOutputValid(true);
  log.SetRedrawHook([this] { bar.DrawStatusBar(); });
  host.console.Forget();
}

void ConsoleScene::LayOut() {
  screen.SetupScrollRegion();
  bar.DrawStatusBar();
}

void ConsoleScene::Start() {
  console::PlayBootAnimation(host.console, host.clock, log, random);
  LayOut();
}

void ConsoleScene::Cycle() {
  const bool size_changed = screen.FollowWindowSize();
  if (size_changed && recorder.menu_visible) menu.RenderMenu(selection_, status.red_alert);
  bar.DrawStatusBar();
}

void ConsoleScene::OpenMenu(int selection) {
  recorder.menu_visible = true;
  selection_ = selection;
  menu.RenderMenu(selection, status.red_alert);
}

void ConsoleScene::CloseMenu() {
  recorder.menu_visible = false;
  screen.ClearScreen();
}

void ConsoleScene::Resize(int columns, int rows) {
  Shown().Resize(columns, rows);
  host.console.info.right = columns - 1;
  host.console.info.bottom = rows - 1;
}

void ConsoleScene::CoreRuns() {
  status.core_pid = 4711;
  status.core_version = "1.2.3a";
  status.crash_count = 1;
  status.uptime = 1h + 2min + 3s;
}

void ConsoleScene::LogCrashAndRelaunch() {
  const auto coloured = [this](std::string_view sequence, std::string_view text) {
    return fmt::format("{}{}{}", log.Colour(sequence), text, log.Colour(console::kReset));
  };
  log.LogWarn("Previously monitored target process (PID 3816) has terminated.");
  log.LogInfo("Target process final exit code: 3221225477 (0xc0000005)");
  log.LogError("Target process exited abnormally (Code: 3221225477). Assuming crash #1");
  log.LogInfo("Waiting 2500ms for dump file generation...");
  host.clock.SleepFor(2500ms);
  log.LogInfo("Found 1 new dump file(s) to process.");
  host.clock.SleepFor(4s);
  log.LogInfo("--- Target process is not running ---");
  log.LogInfo("Crash Count So Far: 1");
  log.LogInfo("Attempting relaunch of VELDRAN Core after 5000ms delay...");
  host.clock.SleepFor(5s);
  log.LogInfo("VELDRAN Core relaunched successfully.");
  host.clock.SleepFor(2s);
  log.LogInfo(fmt::format("New Target Process PID: {}", coloured(console::kMagenta, "4711")));
  log.LogInfo("ProcDump monitor started for new target PID 4711");
  host.clock.SleepFor(1h + 2min + 1s);
  log.LogInfo(fmt::format("Target PID {} running for: {}. Crash count: {}",
                          coloured(console::kMagenta, "4711"),
                          coloured(console::kGreen, "1h 2m 3s"), coloured(console::kYellow, "1")));
}

std::vector<std::string> ConsoleScene::WritesOf(const std::function<void()>& action) {
  Shown();
  action();
  std::vector<std::string> writes;
  for (const auto& written : host.console.Written()) writes.push_back(written.text);
  return writes;
}

Terminal& ConsoleScene::Shown() {
  terminal_.Write(host.console.Text());
  host.console.Forget();
  return terminal_;
}

}  // namespace vosk::support
