#include "supervisor/graceful_restart.h"

#include <fmt/format.h>

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kMonitorExitWait{1000};
constexpr milliseconds kCoreExitWait{3000};
constexpr std::uint32_t kTerminatedExitCode = 0;

}  // namespace

GracefulRestart::GracefulRestart(platform::Processes& system_processes, console::LogSink& log,
                                 process::ProcessControl& processes, SupervisorState& state)
    : system_processes_(system_processes), log_(log), processes_(processes), state_(state) {}

void GracefulRestart::End(platform::ProcessHandle& process, milliseconds limit) {
  processes_.TerminateProcessL(process, kTerminatedExitCode);
  static_cast<void>(system_processes_.WaitFor(process, limit));
  process.Reset();
}

void GracefulRestart::InitiateGracefulRestart(std::string_view reason,
                                              platform::ProcessId& target_pid,
                                              platform::ProcessHandle& hTargetProcess,
                                              platform::ProcessHandle& hProcDump) {
  if (target_pid == 0 || !hTargetProcess) {
    log_.LogWarn("InitiateGracefulRestart called but no target process is running/monitored.");
    return;
  }
  log_.LogWarn("Initiating graceful restart: {}", reason);
  state_.restart_in_progress.store(true);
  log_.LogInfo("Restart: Terminating current VELDRAN Core (PID: {}) and ProcDump...", target_pid);
  // The monitor first: it must not take the Core's end for a crash.
  if (hProcDump) End(hProcDump, kMonitorExitWait);
  End(hTargetProcess, kCoreExitWait);
  log_.LogInfo("Restart: Resetting monitoring state.");
  target_pid = 0;
  state_.ForgetCore(log_.ConsoleLock());
  log_.LogInfo("Restart: Termination complete. Relaunch will occur on next cycle.");
  state_.restart_in_progress.store(false);
}

}  // namespace vosk::supervisor
