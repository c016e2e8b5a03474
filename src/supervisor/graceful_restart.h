// Ends the Core on purpose, so that the monitoring loop launches it afresh.
#pragma once

#include <string_view>

#include "console/log.h"
#include "platform/processes.h"
#include "process/process_control.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

class GracefulRestart {
 public:
  GracefulRestart(platform::Processes& system_processes, console::LogSink& log,
                  process::ProcessControl& processes, SupervisorState& state);

  // Ends the monitor, then the Core, and forgets both. The end is not counted as a crash. The
  // reason is for the log.
  void InitiateGracefulRestart(std::string_view reason, platform::ProcessId& target_pid,
                               platform::ProcessHandle& hTargetProcess,
                               platform::ProcessHandle& hProcDump);

 private:
  void End(platform::ProcessHandle& process, std::chrono::milliseconds limit);

  platform::Processes& system_processes_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
  SupervisorState& state_;
};

}  // namespace vosk::supervisor
