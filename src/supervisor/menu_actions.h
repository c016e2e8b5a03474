// What the operator's keys do.
#pragma once

#include "console/log.h"
#include "console/menu.h"
#include "console/screen.h"
#include "dumps/procdump_monitor.h"
#include "install/core_version.h"
#include "platform/console.h"
#include "supervisor/core_update.h"
#include "supervisor/diagnostic_report.h"
#include "supervisor/graceful_restart.h"
#include "supervisor/places.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

// The services that the menu's items call.
struct MenuServices {
  dumps::ProcDumpMonitor& procdump_monitor;
  const install::CoreVersion& core_version;
  GracefulRestart& restart;
  DiagnosticReport& diagnostic_report;
  CoreUpdate& update;
};

class MenuActions {
 public:
  MenuActions(platform::Console& console, console::LogSink& log, console::Screen& screen,
              const MenuServices& services, const Places& places, SupervisorState& state);

  // Reads a waiting key, if there is one, and acts on it.
  void ReadKeyboard();

  // Draws the open menu again where something on it has changed or `redraw` asks for it.
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

  [[nodiscard]] bool CoreRuns() const;

  platform::Console& console_;
  console::LogSink& log_;
  console::Screen& screen_;
  console::Menu menu_;
  MenuServices services_;
  const Places& places_;
  SupervisorState& state_;
  bool menu_needs_redraw_ = false;
  std::uint64_t lines_shown_ = 0;
};

}  // namespace vosk::supervisor
