// What the operator's keys do.
#pragma once

#include "console/log.h"
#include "console/menu.h"
#include "console/screen.h"
#include "install/core_version.h"
#include "platform/console.h"
#include "supervisor/diagnostic_report.h"
#include "supervisor/state.h"
#include "supervisor/update_schedule.h"
#include "supervisor/watched_core.h"

namespace vosk::supervisor {

class MenuActions {
 public:
  MenuActions(platform::Console& console, console::LogSink& log, console::Screen& screen,
              WatchedCore& core, const install::CoreVersion& core_version,
              DiagnosticReport& diagnostic_report, UpdateSchedule& update_schedule,
              SupervisorState& state);

  // Reads a waiting key, if there is one, and acts on it.
  void ReadKeyboard();

  // The same while VOSK can do nothing but wait: only Q is obeyed.
  void ReadQuitKey();
  void CloseMenuIfOpen();

  // Draws the open menu again if something on it has changed or `redraw` asks for it.
  void RefreshMenu(bool redraw);

 private:
  void HandleSpecialKey();
  void HandleLogKey(int key);
  void HandleMenuKey(int key);
  void MoveSelection(int steps);
  void OpenMenu();
  void CloseMenu();
  void RunSelectedItem();

  void Restart();
  void Quit();
  void ShowVersions();
  void SubmitDiagnosticReport();
  void ToggleRedAlert();

  platform::Console& console_;
  console::LogSink& log_;
  console::Screen& screen_;
  console::Menu menu_;
  WatchedCore& core_;
  const install::CoreVersion& core_version_;
  DiagnosticReport& diagnostic_report_;
  UpdateSchedule& update_schedule_;
  SupervisorState& state_;
  bool menu_needs_redraw_ = false;
  std::uint64_t lines_shown_ = 0;
};

}  // namespace vosk::supervisor
