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
// If another debugger holds the Core, every monitor leaves at once; asking is cheap, but must not
// fill the log.
constexpr seconds kLongestMonitorRetryDelay = std::chrono::hours(1);

// How long a monitor has to stay before it replaces another, and before its forerunners' ends are
// forgotten.
constexpr milliseconds kMonitorSettling{2000};
constexpr seconds kSettledMonitor = std::chrono::minutes(1);

// A Core that refuses to be opened is told of anew only so often.
constexpr std::chrono::minutes kRefusalReportInterval{15};

constexpr milliseconds kMonitorExitWait{1000};
constexpr milliseconds kCoreExitWait{3000};
constexpr milliseconds kMonitorExitWaitInUpdate{2500};
constexpr milliseconds kCoreExitWaitInUpdate{5000};

constexpr std::uint32_t kAccessForUpdate = platform::access::kSynchronize |
                                           platform::access::kQueryInformation |
                                           platform::access::kTerminate;

// The exit codes of a process that VOSK ends: as wanted, and because something is over or wrong.
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
  // An action of the operator may have launched it later than the cycle began.
  return std::max(now - target_launch_time_, std::chrono::steady_clock::duration(0));
}

bool WatchedCore::IsRunning() {
  if (!IsHeld()) return false;
  // The handle knows better than an exit code, which any Core may end with, or a refused look.
  const auto outcome = host_.processes.WaitFor(hTargetProcess_, milliseconds(0));
  if (outcome) return *outcome == platform::WaitOutcome::timed_out;
  return processes_.IsProcessAlive(target_pid_);
}

bool WatchedCore::HasEnded(const platform::ProcessHandle& process) {
  const auto outcome = host_.processes.WaitFor(process, milliseconds(0));
  return outcome && *outcome == platform::WaitOutcome::finished;
}

platform::Result<std::uint32_t> WatchedCore::ExitCode() const {
  return host_.processes.ExitCode(hTargetProcess_);
}

void WatchedCore::Hold(platform::ProcessHandle process, platform::ProcessId pid) {
  target_pid_ = pid;
  hTargetProcess_ = std::move(process);
  target_launch_time_ = host_.clock.SteadyNow();
  was_adopted_ = false;
  // What kept monitors from the last Core need not keep them from this one.
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

bool WatchedCore::AttachToRunningCore() {
  const process::ProcessList running = processes_.FindCoreProcesses();
  if (running.empty()) return false;
  const platform::ProcessId pid = running.front();
  const SteadyTime now = host_.clock.SteadyNow();
  if (pid != refused_.pid) refused_ = {.pid = pid};
  if (now < refused_.next_monitor) return true;
  auto process = host_.processes.Open(
      platform::access::kSynchronize | platform::access::kQueryLimitedInformation, pid);
  // A Core that stays out of reach is asked for in every cycle, but not told of.
  const bool is_known = !process && refused_.times > 0 && now < refused_.next_line;
  if (!is_known) {
    if (running.size() > 1) {
      log_.LogWarn("Multiple instances of '{}' found. Monitoring first detected (PID: {}).",
                   text::WideToUtf8(identity::kCoreExecutable), pid);
    }
    log_.LogInfo("Found existing instance of target (PID: {}).", pid);
  }
  if (!process) {
    ++refused_.times;
    if (is_known) return true;
    log_.LogError("Found running PID {}, but failed to open handle. Error: {}. Cannot monitor.",
                  pid, process.error());
    refused_.next_line = now + kRefusalReportInterval;
    return true;
  }
  Adopt(std::move(*process), pid);
  return true;
}

void WatchedCore::Adopt(platform::ProcessHandle process, platform::ProcessId pid) {
  Hold(std::move(process), pid);
  was_adopted_ = true;
  log_.LogInfo("Successfully attached to existing PID {}. Starting monitoring.", pid);
  log_.LogInfo("Captured {} runtime modules from existing process", CaptureModules());
  if (AttachMonitor()) {
    if (refused_.times > 0) {
      log_.LogInfo("PID {} is monitored now. Attempts that failed before: {}.", pid,
                   refused_.times);
    }
    refused_ = {};
    return;
  }
  log_.LogError("Failed launch ProcDump for existing PID {}.", pid);
  log_.LogError("Detaching from existing process.");
  Forget();
  ++refused_.times;
  refused_.next_monitor = host_.clock.SteadyNow() + refused_.monitor_backoff.Fail();
}

LaunchOutcome WatchedCore::Launch() {
  const std::string command_line = text::PathToUtf8(places_.target_path);
  log_.LogInfo("Executing Command Line: {}", command_line);
  log_.LogInfo("Working Directory: {}", places_.target_directory);
  auto started = host_.processes.Start({.command_line = command_line,
                                        .working_directory = places_.target_directory,
                                        .console = platform::ConsoleOfChild::new_console});
  if (!started) {
    log_.LogError("Failed to launch target process: {}.", started.error());
    return LaunchOutcome::not_started;
  }
  log_.LogInfo("VELDRAN Core relaunched successfully.");
  Hold(std::move(started->handle), started->pid);
  return WatchLaunchedCore() ? LaunchOutcome::watched : LaunchOutcome::unwatched;
}

bool WatchedCore::WatchLaunchedCore() {
  host_.clock.SleepFor(kSettlingPause);
  log_.LogInfo("Captured {} runtime modules from target process", CaptureModules());
  log_.LogInfo("New Target Process PID: {}{}{}", log_.Colour(console::kMagenta), target_pid_,
               log_.Colour(console::kReset));
  if (AttachMonitor()) {
    log_.LogInfo("ProcDump monitor started for new target PID {}", target_pid_);
    return true;
  }
  log_.LogError("Successfully relaunched target PID {}, but FAILED to launch ProcDump monitor!",
                target_pid_);
  log_.LogWarn("Crash dump generation will NOT occur.");
  log_.LogError("Terminating the newly launched target process.");
  // A Core that lingers would be adopted by the next cycle.
  End(hTargetProcess_, kEndedForGood, kCoreExitWait);
  Forget();
  return false;
}

std::size_t WatchedCore::CaptureModules() {
  const std::lock_guard lock(log_.ConsoleLock());
  captured_modules_ =
      report::CaptureProcessModules(hTargetProcess_, host_.processes, host_.machine, log_);
  return captured_modules_.size();
}

platform::ProcessHandle WatchedCore::LaunchMonitor() {
  monitor_launched_at_ = host_.clock.SteadyNow();
  return procdump_monitor_.LaunchProcDumpMonitor(target_pid_, places_.dump_storage_directory);
}

bool WatchedCore::AttachMonitor() {
  HoldMonitor(LaunchMonitor());
  return HasMonitor();
}

void WatchedCore::WatchMonitor(SteadyTime now) {
  if (hProcDump_) {
    const auto exit_code = host_.processes.ExitCode(hProcDump_);
    if (!exit_code || *exit_code == platform::kStillActive) {
      monitor_lost_at_.reset();
      // What kept the monitors before this one from staying is over.
      if (now - monitor_launched_at_ >= kSettledMonitor) monitor_retry_delay_ = kMonitorLossGrace;
      return;
    }
    log_.LogWarn(
        "ProcDump monitor of PID {} has ended (exit code {}) although the target is running.",
        target_pid_, *exit_code);
    hProcDump_.Reset();
  }
  if (!monitor_lost_at_) monitor_lost_at_ = now;
  if (now - *monitor_lost_at_ < monitor_retry_delay_) return;
  // A monitor that an earlier VOSK has left keeps every other one away.
  if (std::exchange(was_adopted_, false)) processes_.TerminateProcDumpInstances();
  log_.LogWarn("Target PID {} is not watched. Attaching a new ProcDump monitor.", target_pid_);
  monitor_lost_at_ = now;
  monitor_retry_delay_ = std::min(monitor_retry_delay_ * 2, kLongestMonitorRetryDelay);
  static_cast<void>(AttachMonitor());
}

MonitorChange WatchedCore::ReattachMonitor() {
  platform::ProcessHandle monitor = LaunchMonitor();
  if (!monitor) return MonitorChange::not_launched;
  // A process has one debugger: the new monitor leaves at once if the old one keeps the Core.
  const auto outcome = host_.processes.WaitFor(monitor, kMonitorSettling);
  const bool left = outcome && *outcome == platform::WaitOutcome::finished;
  if (left && HasMonitor()) return MonitorChange::at_next_launch;
  HoldMonitor(std::move(monitor));
  return left ? MonitorChange::not_launched : MonitorChange::done;
}

void WatchedCore::End(platform::ProcessHandle& process, std::uint32_t exit_code,
                      milliseconds limit) {
  if (!HasEnded(process)) {
    processes_.TerminateProcessL(process, exit_code);
    static_cast<void>(host_.processes.WaitFor(process, limit));
  }
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
  // The monitor first: it must not take the Core's end for a crash.
  if (hProcDump_) End(hProcDump_, kEndedOnPurpose, kMonitorExitWait);
  End(hTargetProcess_, kEndedOnPurpose, kCoreExitWait);
  log_.LogInfo("Restart: Resetting monitoring state.");
  Forget();
  log_.LogInfo("Restart: Termination complete. Relaunch will occur on next cycle.");
  state_.restart_in_progress.store(false);
}

platform::Result<> WatchedCore::Reopen() {
  auto process = host_.processes.Open(kAccessForUpdate, target_pid_);
  if (!process) return tl::unexpected(process.error());
  hTargetProcess_ = std::move(*process);
  return {};
}

platform::Result<platform::ProcessId> WatchedCore::MonitorPid() const {
  return host_.processes.Id(hProcDump_);
}

void WatchedCore::EndMonitorForUpdate() {
  const std::lock_guard lock(log_.ConsoleLock());
  if (!hProcDump_) {
    log_.LogInfo("No active ProcDump process to terminate.");
    return;
  }
  log_.LogInfo("Terminating ProcDump (PID: {})...", host_.processes.Id(hProcDump_).value_or(0));
  if (HasEnded(hProcDump_)) return DropMonitor();
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
  // At start-up a Core may run that nobody holds yet.
  const process::ProcessList running =
      IsHeld() ? process::ProcessList{target_pid_} : processes_.FindCoreProcesses();
  if (running.empty()) {
    log_.LogInfo("No active Core process to terminate.");
    return true;
  }
  for (const platform::ProcessId pid : running) {
    if (!IsHeld() && !HoldForUpdate(pid)) return false;
    if (IsHeld() && !EndCoreForUpdate()) return false;
  }
  log_.LogInfo("Update Step 4/7: Core process termination confirmed.");
  return true;
}

bool WatchedCore::HoldForUpdate(platform::ProcessId pid) {
  auto process = host_.processes.Open(kAccessForUpdate, pid);
  if (process) {
    Hold(std::move(*process), pid);
    return true;
  }
  // A process that has gone meanwhile is what we want.
  if (process.error() == platform::kInvalidParameter) return true;
  log_.LogError(
      "Update Error: Failed to open running VELDRAN Core (PID: {}). Error: {}. Aborting update.",
      pid, process.error());
  return false;
}

bool WatchedCore::EndCoreForUpdate() {
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
  Forget();
  if (!ended) {
    log_.LogError(
        "Update Error: Target Core process (PID: {}) did not terminate within timeout! Aborting "
        "update.",
        pid);
  }
  return ended;
}

void WatchedCore::EndAtShutdown() {
  if (hProcDump_) {
    log_.LogInfo("Terminating active ProcDump monitor process during shutdown...");
    if (!HasEnded(hProcDump_)) processes_.TerminateProcessL(hProcDump_, kEndedOnPurpose);
    hProcDump_.Reset();
  }
  if (hTargetProcess_) {
    log_.LogInfo("Terminating monitored target process (if still running) during shutdown...");
    if (!HasEnded(hTargetProcess_)) {
      processes_.TerminateProcessL(hTargetProcess_, kEndedOnPurpose);
    }
    hTargetProcess_.Reset();
  }
}

}  // namespace vosk::supervisor
