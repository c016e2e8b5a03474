#include "supervisor/watched_core.h"

#include <algorithm>
#include <mutex>

#include "console/colours.h"
#include "identity.h"
#include "platform/clock.h"
#include "report/host_info/module_capture.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// How long a fresh Core gets before a monitor is attached to it.
constexpr milliseconds kSettlingPause{2000};
// If another debugger holds the Core, every monitor ends at once; trying again is cheap, but must
// not fill the log.
constexpr seconds kLongestMonitorRetryDelay = std::chrono::hours(1);

constexpr milliseconds kMonitorExitWait{1000};
constexpr milliseconds kCoreExitWait{3000};
constexpr milliseconds kMonitorExitWaitInUpdate{2500};
constexpr milliseconds kCoreExitWaitInUpdate{5000};

// The exit codes that VOSK ends a process with: on purpose, and because something is over or wrong.
constexpr std::uint32_t kEndedOnPurpose = 0;
constexpr std::uint32_t kEndedForGood = 1;

}  // namespace

WatchedCore::WatchedCore(const platform::Host& host, console::LogSink& log,
                         process::ProcessControl& processes,
                         dumps::ProcDumpMonitor& procdump_monitor, const Places& places,
                         SupervisorState& state)
    : host_(host),
      log_(log),
      processes_(processes),
      procdump_monitor_(procdump_monitor),
      places_(places),
      state_(state) {}

std::optional<std::chrono::steady_clock::duration> WatchedCore::Uptime(SteadyTime now) const {
  if (target_launch_time_ == SteadyTime{}) return std::nullopt;
  return now - target_launch_time_;
}

bool WatchedCore::IsRunning() {
  return IsHeld() && processes_.IsProcessAlive(target_pid_);
}

platform::Result<std::uint32_t> WatchedCore::ExitCode() const {
  return host_.processes.ExitCode(hTargetProcess_);
}

void WatchedCore::Hold(platform::ProcessHandle process, platform::ProcessId pid) {
  target_pid_ = pid;
  hTargetProcess_ = std::move(process);
  target_launch_time_ = host_.clock.SteadyNow();
  // If the last Core could not be monitored, this one may still be.
  monitor_lost_at_.reset();
  monitor_retry_delay_ = kMonitorLossGrace;
}

void WatchedCore::Forget() {
  hTargetProcess_.Reset();
  target_pid_ = 0;
  target_launch_time_ = {};
  const std::lock_guard lock(log_.ConsoleLock());
  captured_modules_.clear();
}

void WatchedCore::AttachToRunningCore() {
  const process::ProcessList running = processes_.FindCoreProcesses();
  if (running.empty()) return;
  const platform::ProcessId pid = running.front();
  if (running.size() > 1) {
    log_.LogWarn("Multiple instances of '{}' found. Monitoring first detected (PID: {}).",
                 text::WideToUtf8(identity::kCoreExecutable), pid);
  }
  log_.LogInfo("Found existing instance of target (PID: {}).", pid);
  if (!OpenRunningCore(pid)) return;
  if (!AttachMonitor()) {
    log_.LogError("Failed launch ProcDump for existing PID {}.", pid);
    log_.LogError("Detaching from existing process.");
    Forget();
  }
}

bool WatchedCore::OpenRunningCore(platform::ProcessId pid) {
  auto process = host_.processes.Open(
      platform::access::kSynchronize | platform::access::kQueryLimitedInformation, pid);
  if (!process) {
    log_.LogError("Found running PID {}, but failed to open handle. Error: {}. Cannot monitor.",
                  pid, process.error());
    return false;
  }
  Hold(std::move(*process), pid);
  log_.LogInfo("Successfully attached to existing PID {}. Starting monitoring.", pid);
  log_.LogInfo("Captured {} runtime modules from existing process", CaptureModules());
  return true;
}

bool WatchedCore::Launch() {
  const std::string command_line = text::PathToUtf8(places_.target_path);
  log_.LogInfo("Executing Command Line: {}", command_line);
  log_.LogInfo("Working Directory: {}", places_.target_directory);
  auto started = host_.processes.Start({.command_line = command_line,
                                        .working_directory = places_.target_directory,
                                        .console = platform::ConsoleOfChild::new_console});
  if (!started) {
    log_.LogError("Failed to launch target process: {}.", started.error());
    return false;
  }
  log_.LogInfo("VELDRAN Core relaunched successfully.");
  Hold(std::move(started->handle), started->pid);
  WatchLaunchedCore();
  return true;
}

void WatchedCore::WatchLaunchedCore() {
  host_.clock.SleepFor(kSettlingPause);
  log_.LogInfo("Captured {} runtime modules from target process", CaptureModules());
  log_.LogInfo("New Target Process PID: {}{}{}", log_.Colour(console::kMagenta), target_pid_,
               log_.Colour(console::kReset));
  if (AttachMonitor()) {
    log_.LogInfo("ProcDump monitor started for new target PID {}", target_pid_);
    return;
  }
  log_.LogError("Successfully relaunched target PID {}, but FAILED to launch ProcDump monitor!",
                target_pid_);
  log_.LogWarn("Crash dump generation will NOT occur.");
  log_.LogError("Terminating the newly launched target process.");
  processes_.TerminateProcessL(hTargetProcess_, kEndedForGood);
  Forget();
}

std::size_t WatchedCore::CaptureModules() {
  const std::lock_guard lock(log_.ConsoleLock());
  captured_modules_ =
      report::CaptureProcessModules(hTargetProcess_, host_.processes, host_.machine, log_);
  return captured_modules_.size();
}

bool WatchedCore::AttachMonitor() {
  HoldMonitor(procdump_monitor_.LaunchProcDumpMonitor(target_pid_, places_.dump_storage_directory));
  return HasMonitor();
}

void WatchedCore::WatchMonitor(SteadyTime now) {
  if (hProcDump_) {
    const auto exit_code = host_.processes.ExitCode(hProcDump_);
    if (!exit_code || *exit_code == platform::kStillActive) {
      monitor_lost_at_.reset();
      return;
    }
    log_.LogWarn(
        "ProcDump monitor of PID {} has ended (exit code {}) although the target is running.",
        target_pid_, *exit_code);
    hProcDump_.Reset();
  }
  if (!monitor_lost_at_) monitor_lost_at_ = now;
  if (now - *monitor_lost_at_ < monitor_retry_delay_) return;
  log_.LogWarn("Target PID {} is not watched. Attaching a new ProcDump monitor.", target_pid_);
  monitor_lost_at_ = now;
  monitor_retry_delay_ = std::min(monitor_retry_delay_ * 2, kLongestMonitorRetryDelay);
  static_cast<void>(AttachMonitor());
}

bool WatchedCore::ReattachMonitor() {
  DropMonitor();
  return AttachMonitor();
}

void WatchedCore::End(platform::ProcessHandle& process, std::uint32_t exit_code,
                      milliseconds limit) {
  processes_.TerminateProcessL(process, exit_code);
  static_cast<void>(host_.processes.WaitFor(process, limit));
  process.Reset();
}

void WatchedCore::CloseEnded() {
  hTargetProcess_.Reset();
  target_launch_time_ = {};
  if (!hProcDump_) return;
  log_.LogInfo("Terminating ProcDump monitor...");
  End(hProcDump_, kEndedForGood, kMonitorExitWait);
  log_.LogInfo("ProcDump monitor terminated/handle closed.");
}

void WatchedCore::InitiateGracefulRestart(std::string_view reason) {
  if (!IsHeld()) {
    log_.LogWarn("InitiateGracefulRestart called but no target process is running/monitored.");
    return;
  }
  log_.LogWarn("Initiating graceful restart: {}", reason);
  state_.restart_in_progress.store(true);
  log_.LogInfo("Restart: Terminating current VELDRAN Core (PID: {}) and ProcDump...", target_pid_);
  // The monitor is ended first: it must not take the Core's end for a crash.
  if (hProcDump_) End(hProcDump_, kEndedOnPurpose, kMonitorExitWait);
  End(hTargetProcess_, kEndedOnPurpose, kCoreExitWait);
  log_.LogInfo("Restart: Resetting monitoring state.");
  Forget();
  log_.LogInfo("Restart: Termination complete. Relaunch will occur on next cycle.");
  state_.restart_in_progress.store(false);
}

void WatchedCore::ValidateBeforeUpdate(bool core_runs) {
  log_.LogInfo("Pre-Update Validation: Verifying state before proceeding...");
  if (!core_runs || target_pid_ == 0) {
    log_.LogInfo(
        "Pre-Update: Target process not currently running. Update will proceed without termination "
        "step.");
    DropMonitor();
    Forget();
    return;
  }
  // Despite "Aborting update", neither path aborts: the update checks for itself.
  if (!hTargetProcess_ && !ReopenForUpdate()) return;
  if (processes_.IsProcessAlive(target_pid_)) {
    log_.LogInfo("Pre-Update: Target process PID {} confirmed running.", target_pid_);
    ValidateMonitor();
    return;
  }
  log_.LogError("Pre-Update Error: Target process PID {} is no longer running. Aborting update.",
                target_pid_);
  DropMonitor();
  Forget();
}

bool WatchedCore::ReopenForUpdate() {
  log_.LogWarn(
      "Pre-Update Warning: hTargetProcess handle is invalid. Attempting to re-open PID: {}",
      target_pid_);
  auto process =
      host_.processes.Open(platform::access::kSynchronize | platform::access::kQueryInformation |
                               platform::access::kTerminate,
                           target_pid_);
  if (!process) {
    log_.LogError(
        "Pre-Update Error: Failed to re-open handle for target PID {}. Error: {}. Aborting update.",
        target_pid_, process.error());
    return false;
  }
  hTargetProcess_ = std::move(*process);
  log_.LogInfo("Pre-Update: Successfully re-opened handle for target PID {}", target_pid_);
  return true;
}

void WatchedCore::ValidateMonitor() {
  if (!hProcDump_) {
    log_.LogWarn(
        "Pre-Update Warning: hProcDump handle is invalid or ProcDump wasn't running. Update will "
        "proceed without terminating it.");
    return;
  }
  const auto pid = host_.processes.Id(hProcDump_);
  if (!pid) {
    log_.LogWarn("Pre-Update Warning: Could not get PID for hProcDump handle. Error: {}",
                 pid.error());
    return;
  }
  if (!processes_.IsProcessAlive(*pid)) {
    log_.LogWarn("Pre-Update Warning: ProcDump process (PID: {}) is no longer running.", *pid);
    DropMonitor();
    return;
  }
  log_.LogInfo("Pre-Update: ProcDump process (PID: {}) confirmed running.", *pid);
}

void WatchedCore::EndMonitorForUpdate() {
  const std::lock_guard lock(log_.ConsoleLock());
  if (!hProcDump_) {
    log_.LogInfo("No active ProcDump process to terminate.");
    return;
  }
  log_.LogInfo("Terminating ProcDump (PID: {})...", host_.processes.Id(hProcDump_).value_or(0));
  const auto terminated = processes_.TerminateProcessL(hProcDump_, kEndedForGood);
  if (!terminated) {
    log_.LogWarn("TerminateProcess failed for ProcDump (Error: {}). Might already be stopped.",
                 terminated.error());
  } else {
    const auto outcome = host_.processes.WaitFor(hProcDump_, kMonitorExitWaitInUpdate);
    if (outcome && *outcome == platform::WaitOutcome::timed_out) {
      log_.LogWarn("ProcDump did not exit quickly after termination signal.");
    }
  }
  DropMonitor();
}

bool WatchedCore::EndForUpdate() {
  EndMonitorForUpdate();
  if (!IsHeld()) {
    log_.LogInfo("No active Core process to terminate.");
    return true;
  }
  const platform::ProcessId pid = target_pid_;
  log_.LogInfo("Terminating VELDRAN Core (PID: {})...", pid);
  const auto terminated = processes_.TerminateProcessL(hTargetProcess_, kEndedForGood);
  if (!terminated) {
    const platform::Error& error = terminated.error();
    if (error == platform::kAccessDenied || error == platform::kInvalidHandle) {
      log_.LogInfo("TerminateProcess failed for Core (Error: {}) - likely already stopped.", error);
    } else {
      log_.LogWarn("TerminateProcess failed for Core (Error: {}). Might already be stopped.",
                   error);
    }
  }
  const auto outcome = host_.processes.WaitFor(hTargetProcess_, kCoreExitWaitInUpdate);
  const bool ended =
      outcome ? *outcome == platform::WaitOutcome::finished : !processes_.IsProcessAlive(pid);
  hTargetProcess_.Reset();
  if (!ended) {
    log_.LogError(
        "Update Error: Target Core process (PID: {}) did not terminate within timeout! Aborting "
        "update.",
        pid);
    return false;
  }
  log_.LogInfo("Update Step 4/7: Core process termination confirmed.");
  return true;
}

void WatchedCore::EndAtShutdown() {
  if (hProcDump_) {
    log_.LogInfo("Terminating active ProcDump monitor process during shutdown...");
    processes_.TerminateProcessL(hProcDump_, kEndedOnPurpose);
    hProcDump_.Reset();
  }
  if (hTargetProcess_) {
    log_.LogInfo("Terminating monitored target process (if still running) during shutdown...");
    processes_.TerminateProcessL(hTargetProcess_, kEndedOnPurpose);
    hTargetProcess_.Reset();
  }
}

}  // namespace vosk::supervisor
