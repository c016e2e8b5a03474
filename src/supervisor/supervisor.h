// VOSK from its entry to its end: the console and the log, start-up, monitoring, shutdown.
#pragma once

#include <string>
#include <vector>

#include "console/console_settings.h"
#include "supervisor/services.h"

namespace vosk::supervisor {

class Supervisor {
 public:
  // Both outlive the supervisor.
  Supervisor(const platform::Host& host, Network& network);

  // Runs the program with its UTF-8 arguments (without the program's name) and returns the exit
  // status.
  int Run(const std::vector<std::string>& arguments);

 private:
  int RunToTheEnd(const std::vector<std::string>& arguments);
  void PrintVersions();
  [[nodiscard]] bool ClearTheField();
  void OpenConsoleAndLog();
  void ShowStart();
  void LogBanner();
  void LogArguments(const std::vector<std::string>& arguments);
  void ShutDown();
  // Leaves the console as it was found and the window cleared, its log lines being printed again if
  // they are wanted. A second call does nothing.
  void ReleaseConsole(bool with_recent_lines);

  // Shows the operator in a message box why the program ends, and returns the exit status.
  int EndFatally(const std::string& text);

  Services services_;
  const platform::Host& host_;
  console::LogSink& log_;
  console::ConsoleSettings console_settings_;
};

}  // namespace vosk::supervisor
