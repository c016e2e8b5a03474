// Ends what runs, so that an update can replace it.
#pragma once

#include "console/log.h"
#include "platform/processes.h"
#include "process/process_control.h"

namespace vosk::supervisor {

class CoreEndForUpdate {
 public:
  CoreEndForUpdate(platform::Processes& system_processes, console::LogSink& log,
                   process::ProcessControl& processes);

  // Ends the monitor, then the Core, and lets go of both handles. False if the Core outlived it.
  [[nodiscard]] bool EndCore(platform::ProcessId core_pid, platform::ProcessHandle& hTargetProcess,
                             platform::ProcessHandle& hProcDump);

 private:
  void TerminateMonitor(platform::ProcessHandle& hProcDump);
  [[nodiscard]] bool TerminateCore(platform::ProcessId core_pid,
                                   platform::ProcessHandle& hTargetProcess);

  platform::Processes& system_processes_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
};

}  // namespace vosk::supervisor
