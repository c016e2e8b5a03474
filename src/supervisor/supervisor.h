// VOSK from its entry to its end: the console and the log, start-up, monitoring, shutdown.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/console.h"
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
  void PrepareConsole();
  void PrintVersions();
  [[nodiscard]] bool ClearTheField();
  void OpenConsoleAndLog();
  void ShowStart();
  void LogBanner();
  void LogArguments(const std::vector<std::string>& arguments);
  void ShutDown();
  void ReleaseConsole();

  // Shows the operator in a message box why the program ends, and returns the exit status.
  int EndFatally(const std::string& text);

  Services services_;
  const platform::Host& host_;
  console::LogSink& log_;
  std::optional<platform::ConsoleInfo> console_at_start_;
};

}  // namespace vosk::supervisor
