// The console's pieces put together as the supervisor does, before a terminal of a given size.
#pragma once

#include <random>
#include <string>

#include "console/menu.h"
#include "console/screen.h"
#include "console/status_bar.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"
#include "tests/support/terminal.h"

namespace vosk::support {

class ConsoleScene {
 public:
  ConsoleScene(int columns, int rows);
  ~ConsoleScene() { screen.Release(); }

  // Does what start-up does with the console once it knows what the console accepts.
  void LayOut();
  // Does the same after the boot animation.
  void Start();
  // Does what each cycle of the monitoring loop does with the console.
  void Cycle();
  void OpenMenu(int selection);
  void CloseMenu();
  // Drags the window to another size, as the operator does.
  void Resize(int columns, int rows);
  // Logs the time from the end of one Core to the first hour of the next.
  void LogCrashAndRelaunch();

  // Returns the terminal with all that was written so far.
  Terminal& Shown();

  CheckedHost host;
  LogRecorder recorder{host};
  console::LogSink& log = recorder.Sink();
  console::TransferProgress progress;
  console::StatusSnapshot status{.core_version = "0.0.0"};
  console::StatusBar bar{host.console, log, progress, [this] { return status; }};
  console::Menu menu{host.console, log};
  console::Screen screen{host.console, log};
  std::mt19937 random{2025};

 private:
  Terminal terminal_;
  int selection_ = 1;
};

}  // namespace vosk::support
