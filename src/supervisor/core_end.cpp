// The monitoring loop when the Core, or the monitor that watches it, has ended.
#include <fmt/format.h>

#include <algorithm>

#include "platform/clock.h"
#include "supervisor/monitoring_loop.h"

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kDumpWriteWait{2500};
constexpr milliseconds kMonitorExitWait{1000};
// Where another debugger holds the Core, every monitor leaves at once; asking is cheap, but must
// not fill the log.
constexpr seconds kLongestMonitorRetryDelay = std::chrono::hours(1);
constexpr std::uint32_t kTerminatedExitCode = 1;

}  // namespace

void MonitoringLoop::HandleCoreEnd() {
  log_.LogWarn("Previously monitored target process (PID {}) has terminated.", state_.target_pid);
  const CoreEnd end = JudgeCoreEnd();
  state_.hTargetProcess.Reset();
  EndMonitorOfDeadCore();
  state_.target_launch_time = {};
  services_.crash_processing.ProcessNewDumps(places_.dump_storage_directory,
                                             places_.log_root_directory, end);
  state_.ForgetCore(log_.ConsoleLock());
}

void MonitoringLoop::HandleExpectedEnd() {
  log_.LogInfo("Target process termination detected during update sequence (expected).");
  if (state_.hProcDump) {
    log_.LogInfo("Closing potentially orphaned ProcDump handle during update.");
    state_.hProcDump.Reset();
  }
  state_.ForgetCore(log_.ConsoleLock());
}

CoreEnd MonitoringLoop::JudgeCoreEnd() {
  CoreEnd end;
  if (const auto exit_code = host_.processes.ExitCode(state_.hTargetProcess)) {
    end.exit_code = *exit_code;
  } else {
    log_.LogWarn("Failed to get exit code for terminated PID {}. Error: {}", state_.target_pid,
                 exit_code.error());
  }
  log_.LogInfo("Target process final exit code: {} (0x{:x})", ExitCodeText(end),
               end.exit_code.value_or(0));
  end.is_crash =
      !end.exit_code || (*end.exit_code != 0 && *end.exit_code != platform::kStillActive);
  if (!end.is_crash) {
    log_.LogInfo("Target process exited normally (Code 0).");
    return end;
  }
  ++state_.crash_count;
  log_.LogError("Target process exited abnormally (Code: {}). Assuming crash #{}",
                ExitCodeText(end), state_.crash_count);
  log_.LogInfo("Waiting {}ms for dump file generation...", kDumpWriteWait.count());
  host_.clock.SleepFor(kDumpWriteWait);
  return end;
}

void MonitoringLoop::EndMonitorOfDeadCore() {
  if (!state_.hProcDump) return;
  log_.LogInfo("Terminating ProcDump monitor...");
  services_.processes.TerminateProcessL(state_.hProcDump, kTerminatedExitCode);
  static_cast<void>(host_.processes.WaitFor(state_.hProcDump, kMonitorExitWait));
  state_.hProcDump.Reset();
  log_.LogInfo("ProcDump monitor terminated/handle closed.");
}

void MonitoringLoop::WatchMonitor(SteadyTime now) {
  if (state_.hProcDump) {
    const auto exit_code = host_.processes.ExitCode(state_.hProcDump);
    if (!exit_code || *exit_code == platform::kStillActive) {
      monitor_lost_at_.reset();
      return;
    }
    log_.LogWarn(
        "ProcDump monitor of PID {} has ended (exit code {}) although the target is running.",
        state_.target_pid, *exit_code);
    state_.hProcDump.Reset();
  }
  if (!monitor_lost_at_) monitor_lost_at_ = now;
  if (now - *monitor_lost_at_ < monitor_retry_delay_) return;
  log_.LogWarn("Target PID {} is not watched. Attaching a new ProcDump monitor.",
               state_.target_pid);
  monitor_lost_at_ = now;
  monitor_retry_delay_ = std::min(monitor_retry_delay_ * 2, kLongestMonitorRetryDelay);
  state_.hProcDump = services_.procdump_monitor.LaunchProcDumpMonitor(
      state_.target_pid, places_.dump_storage_directory);
}

}  // namespace vosk::supervisor
