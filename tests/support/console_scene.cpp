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
  screen.SetupScrollRegion();
  screen.PrintRecentLines();
  bar.DrawStatusBar();
}

void ConsoleScene::Resize(int columns, int rows) {
  Shown().Resize(columns, rows);
  host.console.info.right = columns - 1;
  host.console.info.bottom = rows - 1;
}

void ConsoleScene::LogCrashAndRelaunch() {
  const auto coloured = [this](std::string_view sequence, std::string_view text) {
    return fmt::format("{}{}{}", log.Colour(sequence), text, log.Colour(console::kReset));
  };
  const std::string pid = coloured(console::kMagenta, "4711");
  const std::string uptime = coloured(console::kGreen, "1h 2m 3s");
  const std::tuple<std::chrono::milliseconds, const char*, std::string> lines[] = {
      {0s, "WARN", "Previously monitored target process (PID 3816) has terminated."},
      {0s, "INFO", "Target process final exit code: 3221225477 (0xc0000005)"},
      {0s, "ERROR", "Target process exited abnormally (Code: 3221225477). Assuming crash #1"},
      {0s, "INFO", "Waiting 2500ms for dump file generation..."},
      {2500ms, "INFO", "Found 1 new dump file(s) to process."},
      {4s, "INFO", "--- Target process is not running ---"},
      {0s, "INFO", "Crash Count So Far: 1"},
      {0s, "INFO", "Attempting relaunch of VELDRAN Core after 5000ms delay..."},
      {5s, "INFO", "VELDRAN Core relaunched successfully."},
      {2s, "INFO", "New Target Process PID: " + pid},
      {0s, "INFO", "ProcDump monitor started for new target PID 4711"},
      {3721s, "INFO",
       fmt::format("Target PID {} running for: {}. Crash count: {}", pid, uptime,
                   coloured(console::kYellow, "1"))}};
  status = {.core_pid = 4711, .core_version = "1.2.3a", .crash_count = 1, .uptime = 3723s};
  for (const auto& [after, level, text] : lines) {
    host.clock.SleepFor(after);
    log.LogMessage(level, text);
  }
}

Terminal& ConsoleScene::Shown() {
  terminal_.Write(host.console.Text());
  host.console.Forget();
  return terminal_;
}

}  // namespace vosk::support
