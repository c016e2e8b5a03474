#include "supervisor/core_end_for_update.h"

#include <chrono>
#include <mutex>

namespace vosk::supervisor {
namespace {

constexpr std::chrono::milliseconds kMonitorExitWait{2500};
constexpr std::chrono::milliseconds kCoreExitWait{5000};
constexpr std::uint32_t kTerminatedExitCode = 1;

}  // namespace

CoreEndForUpdate::CoreEndForUpdate(platform::Processes& system_processes, console::LogSink& log,
                                   process::ProcessControl& processes)
    : system_processes_(system_processes), log_(log), processes_(processes) {}

bool CoreEndForUpdate::EndCore(platform::ProcessId core_pid,
                               platform::ProcessHandle& hTargetProcess,
                               platform::ProcessHandle& hProcDump) {
  TerminateMonitor(hProcDump);
  return TerminateCore(core_pid, hTargetProcess);
}

void CoreEndForUpdate::TerminateMonitor(platform::ProcessHandle& hProcDump) {
  const std::lock_guard lock(log_.ConsoleLock());
  if (!hProcDump) {
    log_.LogInfo("No active ProcDump process to terminate.");
    return;
  }
  log_.LogInfo("Terminating ProcDump (PID: {})...", system_processes_.Id(hProcDump).value_or(0));
  const auto terminated = processes_.TerminateProcessL(hProcDump, kTerminatedExitCode);
  if (!terminated) {
    log_.LogWarn("TerminateProcess failed for ProcDump (Error: {}). Might already be stopped.",
                 terminated.error());
  } else {
    const auto outcome = system_processes_.WaitFor(hProcDump, kMonitorExitWait);
    if (outcome && *outcome == platform::WaitOutcome::timed_out) {
      log_.LogWarn("ProcDump did not exit quickly after termination signal.");
    }
  }
  hProcDump.Reset();
}

bool CoreEndForUpdate::TerminateCore(platform::ProcessId core_pid,
                                     platform::ProcessHandle& hTargetProcess) {
  if (!hTargetProcess || core_pid == 0) {
    log_.LogInfo("No active Core process to terminate.");
    return true;
  }
  log_.LogInfo("Terminating VELDRAN Core (PID: {})...", core_pid);
  const auto terminated = processes_.TerminateProcessL(hTargetProcess, kTerminatedExitCode);
  if (!terminated) {
    const platform::ErrorCode error = terminated.error().code;
    if (error == platform::kAccessDenied || error == platform::kInvalidHandle) {
      log_.LogInfo("TerminateProcess failed for Core (Error: {}) - likely already stopped.", error);
    } else {
      log_.LogWarn("TerminateProcess failed for Core (Error: {}). Might already be stopped.",
                   error);
    }
  }
  const auto outcome = system_processes_.WaitFor(hTargetProcess, kCoreExitWait);
  const bool ended =
      outcome ? *outcome == platform::WaitOutcome::finished : !processes_.IsProcessAlive(core_pid);
  hTargetProcess.Reset();
  if (!ended) {
    log_.LogError(
        "Update Error: Target Core process (PID: {}) did not terminate within timeout! "
        "Aborting update.",
        core_pid);
    return false;
  }
  log_.LogInfo("Update Step 4/7: Core process termination confirmed.");
  return true;
}

}  // namespace vosk::supervisor
