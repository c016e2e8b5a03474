#include "supervisor/pre_update_validation.h"

namespace vosk::supervisor {
namespace {

bool Reopen(WatchedCore& core, console::LogSink& log) {
  const platform::ProcessId pid = core.Pid();
  log.LogWarn("Pre-Update Warning: hTargetProcess handle is invalid. Attempting to re-open PID: {}",
              pid);
  if (const auto reopened = core.Reopen(); !reopened) {
    log.LogError(
        "Pre-Update Error: Failed to re-open handle for target PID {}. Error: {}. Aborting update.",
        pid, reopened.error());
    return false;
  }
  log.LogInfo("Pre-Update: Successfully re-opened handle for target PID {}", pid);
  return true;
}

void ValidateMonitor(WatchedCore& core, process::ProcessControl& processes, console::LogSink& log) {
  if (!core.HasMonitor()) {
    log.LogWarn(
        "Pre-Update Warning: hProcDump handle is invalid or ProcDump wasn't running. Update will "
        "proceed without terminating it.");
    return;
  }
  const auto pid = core.MonitorPid();
  if (!pid) {
    log.LogWarn("Pre-Update Warning: Could not get PID for hProcDump handle. Error: {}",
                pid.error());
    return;
  }
  if (!processes.IsProcessAlive(*pid)) {
    log.LogWarn("Pre-Update Warning: ProcDump process (PID: {}) is no longer running.", *pid);
    core.DropMonitor();
    return;
  }
  log.LogInfo("Pre-Update: ProcDump process (PID: {}) confirmed running.", *pid);
}

}  // namespace

void ValidateBeforeUpdate(WatchedCore& core, CoreEndHandling& core_end,
                          process::ProcessControl& processes, console::LogSink& log,
                          bool core_runs) {
  log.LogInfo("Pre-Update Validation: Verifying state before proceeding...");
  if (!core_runs || core.Pid() == 0) {
    log.LogInfo(
        "Pre-Update: Target process not currently running. Update will proceed without termination "
        "step.");
    core.DropMonitor();
    core.Forget();
    return;
  }
  // Despite "Aborting update", neither path aborts: the update checks for itself.
  if (!core.IsHeld() && !Reopen(core, log)) return;
  if (core.IsRunning()) {
    log.LogInfo("Pre-Update: Target process PID {} confirmed running.", core.Pid());
    ValidateMonitor(core, processes, log);
    return;
  }
  log.LogError("Pre-Update Error: Target process PID {} is no longer running. Aborting update.",
               core.Pid());
  // Its dump would be lost to the successor's start.
  core_end.HandleCoreEnd();
}

}  // namespace vosk::supervisor
