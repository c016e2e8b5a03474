#include "supervisor/menu_actions.h"

#include <fmt/format.h>

#include <algorithm>

#include "identity.h"

namespace vosk::supervisor {
namespace {

// An arrow key arrives as one of these prefixes and a second code.
constexpr int kArrowPrefix = 224;
constexpr int kKeypadPrefix = 0;
constexpr int kUp = 72;
constexpr int kDown = 80;
constexpr int kEnter = 13;

}  // namespace

MenuActions::MenuActions(platform::Console& console, console::LogSink& log, console::Screen& screen,
                         WatchedCore& core, const install::CoreVersion& core_version,
                         DiagnosticReport& diagnostic_report, UpdateSchedule& update_schedule,
                         SupervisorState& state)
    : console_(console),
      log_(log),
      screen_(screen),
      menu_(console, log),
      core_(core),
      core_version_(core_version),
      diagnostic_report_(diagnostic_report),
      update_schedule_(update_schedule),
      state_(state) {}

void MenuActions::ReadKeyboard() {
  if (!console_.KeyWaiting()) return;
  const int key = console_.ReadKey();
  if (key == kArrowPrefix || key == kKeypadPrefix) {
    HandleSpecialKey();
  } else if (state_.menu_visible) {
    HandleMenuKey(key);
  } else {
    HandleLogKey(key);
  }
}

void MenuActions::ReadQuitKey() {
  if (!console_.KeyWaiting()) return;
  const int key = console_.ReadKey();
  if (key == 'Q' || key == 'q') HandleLogKey(key);
}

void MenuActions::CloseMenuIfOpen() {
  if (state_.menu_visible) CloseMenu();
}

void MenuActions::HandleSpecialKey() {
  // The code is taken with its prefix whether it means something here or not: left behind, it would
  // be read as a letter, and that of Page Down is a Q. A letter that looks like the prefix has no
  // second code.
  const int code = console_.KeyWaiting() ? console_.ReadKey() : 0;
  if (!state_.menu_visible) return;
  if (code == kUp) MoveSelection(-1);
  if (code == kDown) MoveSelection(+1);
}

void MenuActions::HandleLogKey(int key) {
  if (key == 'M' || key == 'm') {
    OpenMenu();
  } else if (key == 'Q' || key == 'q') {
    log_.LogWarn("Quit signal received by user. Shutting down...");
    state_.g_terminateMonitoring.store(true);
  }
}

void MenuActions::HandleMenuKey(int key) {
  switch (key) {
    case kEnter:
      CloseMenu();
      RunSelectedItem();
      break;
    case 'M':
    case 'm':
      CloseMenu();
      break;
    case 'Q':
    case 'q':
      CloseMenu();
      log_.LogWarn("Menu: Quit VOSK & VELDRAN Core requested via 'Q'.");
      Quit();
      break;
    default:
      break;
  }
}

void MenuActions::MoveSelection(int steps) {
  state_.menu_selection = std::clamp(state_.menu_selection + steps, 1, console::kMenuItems);
  menu_needs_redraw_ = true;
}

void MenuActions::OpenMenu() {
  // Keys pressed into a menu that nobody sees would restart the Core.
  if (!console::DrawableWindow(console_, log_)) return;
  state_.menu_visible = true;
  state_.menu_selection = 1;
  menu_needs_redraw_ = true;
}

void MenuActions::CloseMenu() {
  state_.menu_visible = false;
  screen_.ClearScreen();
  screen_.SetupScrollRegion();
  screen_.PrintRecentLines();
  log_.RedrawStatusBar();
}

void MenuActions::RefreshMenu(bool redraw) {
  if (!state_.menu_visible) return;
  // Lines that were logged meanwhile appear below the items.
  const bool new_lines = lines_shown_ != log_.LinesLogged();
  if (!menu_needs_redraw_ && !new_lines && !redraw) return;
  menu_needs_redraw_ = false;
  lines_shown_ = log_.LinesLogged();
  menu_.RenderMenu(state_.menu_selection, state_.red_alert_mode.load());
}

void MenuActions::RunSelectedItem() {
  switch (state_.menu_selection) {
    case 1:
      return Restart();
    case 2:
      return Quit();
    case 3:
      return ShowVersions();
    case 4:
      return SubmitDiagnosticReport();
    case 5:
      return update_schedule_.ForceReinstall();
    default:
      return ToggleRedAlert();
  }
}

void MenuActions::Restart() {
  if (!core_.IsHeld()) {
    log_.LogWarn("Menu: Restart requested, but Core not running.");
    state_.relaunch_not_before = {};
    return;
  }
  log_.LogWarn("Menu: Forced restart of VELDRAN Core requested.");
  core_.InitiateGracefulRestart("Forced by User via Menu");
}

void MenuActions::Quit() {
  log_.LogWarn("Menu: Quit VOSK & VELDRAN Core requested.");
  state_.g_terminateMonitoring.store(true);
}

void MenuActions::ShowVersions() {
  const std::string& core = core_version_.Current();
  const bool known = !core.empty() && core != install::kUnknownVersion;
  log_.LogInfo("=== Version Information ===");
  log_.LogInfo("VOSK Version: {}", identity::kVersion);
  log_.LogInfo("VELDRAN Core Version: {}", known ? core : "Not detected or not running");
  log_.LogInfo("===========================");
}

void MenuActions::SubmitDiagnosticReport() {
  if (!core_.IsHeld()) {
    log_.LogError("Menu: Cannot submit diagnostic report - VELDRAN Core is not running.");
    return;
  }
  diagnostic_report_.Submit(core_.Pid());
}

void MenuActions::ToggleRedAlert() {
  const bool active = !state_.red_alert_mode.load();
  state_.red_alert_mode.exchange(active);
  if (active) {
    log_.LogWarn("RED ALERT MODE ACTIVATED - Full heap dumps (-ma) will be captured on crash.");
  } else {
    log_.LogInfo("Red Alert Mode DEACTIVATED - Returning to normal dump mode (-mc 1064).");
  }
  if (!core_.IsHeld()) return;
  log_.LogInfo("Re-attaching ProcDump monitor with {} dump settings...",
               active ? "FULL MEMORY (-ma)" : "normal (-mc 1064)");
  switch (core_.ReattachMonitor()) {
    case MonitorChange::done:
      return log_.LogInfo("ProcDump monitor re-attached successfully.");
    case MonitorChange::at_next_launch:
      return log_.LogWarn(
          "The present ProcDump monitor keeps the VELDRAN Core. The new dump settings take effect "
          "when the Core starts next; menu item 1 restarts it.");
    case MonitorChange::not_launched:
      return log_.LogError(
          "Failed to re-attach ProcDump monitor. Crash dumps may not be captured.");
  }
}

}  // namespace vosk::supervisor
