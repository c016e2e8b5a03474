// VOSK from its entry to its end: start-up, the monitoring loop, shutdown.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "console/log.h"
#include "console/screen.h"
#include "console/status_bar.h"
#include "console/transfer_progress.h"
#include "install/core_version.h"
#include "platform/console.h"
#include "platform/host.h"
#include "process/process_control.h"
#include "report/host_info/host_info.h"
#include "supervisor/network.h"
#include "supervisor/places.h"
#include "supervisor/startup_provision.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

class Supervisor {
 public:
  // Both outlive the supervisor.
  Supervisor(const platform::Host& host, Network& network);

  // Runs the program with its UTF-8 arguments (without the program's name); the exit status.
  int Run(const std::vector<std::string>& arguments);

 private:
  void PrepareConsole();
  void PrintVersions();
  [[nodiscard]] bool ClearTheField();
  void OpenConsoleAndLog();
  void ShowStart();
  void LogBanner();
  void LogArguments(const std::vector<std::string>& arguments);
  void LogMonitoringBanner(const Places& places);

  int RunWithNetwork();
  int RunWithCom();
  // Finds, fetches or installs what monitoring needs; an exit status where it cannot begin.
  [[nodiscard]] std::optional<int> PrepareMonitoring(Places& places, const Provisions& provisions);
  void DetermineCoreVersion(const Places& places);
  void Monitor(const Places& places, const Provisions& provisions);
  void ShutDown();
  void ReleaseConsole();
  [[nodiscard]] console::StatusSnapshot Status() const;

  // Tells the operator in a box why the program ends, and gives the exit status.
  int EndFatally(const std::string& title, const std::string& text);
  int EndInitialization(const std::string& text);

  platform::Host host_;
  Network& network_;
  SupervisorState state_;
  console::LogSink log_;
  console::Screen screen_;
  console::TransferProgress progress_;
  install::CoreVersion core_version_;
  console::StatusBar status_bar_;
  process::ProcessControl processes_;
  report::HostInfo host_info_;
  std::optional<platform::ConsoleInfo> console_at_start_;
};

}  // namespace vosk::supervisor
