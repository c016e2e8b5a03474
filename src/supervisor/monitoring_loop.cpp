#include "supervisor/monitoring_loop.h"

#include "console/colours.h"
#include "console/uptime.h"
#include "platform/clock.h"

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kMenuInterval{100};
constexpr milliseconds kShortageInterval{1000};
constexpr seconds kStatusReportInterval{15};
constexpr std::chrono::hours kScheduledRestartInterval{12};
constexpr milliseconds kDumpWriteWait{2500};
constexpr milliseconds kRelaunchDelay{5000};
constexpr seconds kExitPause{15};

}  // namespace

MonitoringLoop::MonitoringLoop(Services& services)
    : services_(services),
      clock_(services.host.clock),
      log_(services.log),
      core_(services.core),
      state_(services.state),
      places_(services.places) {}

void MonitoringLoop::Run() {
  while (!state_.g_terminateMonitoring.load()) RunCycle();
}

void MonitoringLoop::RunCycle() {
  if (!PassDiskGate()) return;
  ReadCoreVersion();
  const SteadyTime now = clock_.SteadyNow();
  services_.menu.ReadKeyboard();
  RefreshDisplay();
  // A VOSK that is about to end must not take the Core from its successor.
  const bool ending = state_.g_terminateMonitoring.load();
  if (!ending && !core_.IsHeld()) core_.AttachToRunningCore();
  const bool core_runs = CheckCore(now) && !RestartWhenDue(now);
  if (!ending) services_.update_schedule.CheckPeriodically(now, core_runs);
  // A successor that has taken over launches the Core itself.
  if (state_.g_terminateMonitoring.load()) return;
  if (!core_runs || UpdateEndedCore()) Relaunch();
  clock_.SleepFor(state_.menu_visible ? kMenuInterval : kMonitoringInterval);
}

bool MonitoringLoop::PassDiskGate() {
  if (services_.disk_space.CheckDiskSpace(places_.target_directory, /*verbose=*/false)) {
    shortage_reported_ = false;
    return true;
  }
  if (!shortage_reported_) {
    log_.LogWarn("Storage space not sufficient. Halting VOSK Operations.");
  }
  shortage_reported_ = true;
  clock_.SleepFor(kShortageInterval);
  return false;
}

void MonitoringLoop::ReadCoreVersion() {
  if (places_.log_root_directory.empty()) return;
  services_.core_version.Read(places_.log_root_directory, /*quiet=*/true);
}

void MonitoringLoop::RefreshDisplay() {
  const bool resized = services_.screen.FollowWindowSize();
  services_.menu.RefreshMenu(resized);
  services_.status_bar.DrawStatusBar();
}

bool MonitoringLoop::CheckCore(SteadyTime now) {
  if (!core_.IsHeld()) return false;
  if (!core_.IsRunning()) {
    if (state_.update_in_progress.load()) {
      HandleExpectedEnd();
    } else {
      HandleCoreEnd();
    }
    return false;
  }
  core_was_running_ = true;
  ReportRunning(now);
  core_.WatchMonitor(now);
  return true;
}

void MonitoringLoop::ReportRunning(SteadyTime now) {
  if (last_status_report_ && now - *last_status_report_ < kStatusReportInterval) return;
  last_status_report_ = now;
  const auto colour = [this](std::string_view sequence) { return log_.Colour(sequence); };
  const auto reset = colour(console::kReset);
  log_.LogInfo("Target PID {}{}{} running for: {}{}{}. Crash count: {}{}{}",
               colour(console::kMagenta), core_.Pid(), reset, colour(console::kGreen),
               console::FormatUptime(core_.Uptime(now).value_or(seconds(0))), reset,
               colour(console::kYellow), state_.crash_count, reset);
}

bool MonitoringLoop::RestartWhenDue(SteadyTime now) {
  const auto uptime = core_.Uptime(now);
  if (!uptime || *uptime <= kScheduledRestartInterval) return false;
  log_.LogWarn("Scheduled restart triggered. Uptime ({}) exceeded interval ({} hours).",
               console::FormatUptime(*uptime), kScheduledRestartInterval.count());
  core_.InitiateGracefulRestart("Scheduled Interval");
  return true;
}

void MonitoringLoop::HandleCoreEnd() {
  log_.LogWarn("Previously monitored target process (PID {}) has terminated.", core_.Pid());
  const CoreEnd end = JudgeCoreEnd();
  core_.CloseEnded();
  services_.crash_processing.ProcessNewDumps(places_.dump_storage_directory,
                                             places_.log_root_directory, end);
  core_.Forget();
}

void MonitoringLoop::HandleExpectedEnd() {
  log_.LogInfo("Target process termination detected during update sequence (expected).");
  if (core_.HasMonitor()) {
    log_.LogInfo("Closing potentially orphaned ProcDump handle during update.");
    core_.DropMonitor();
  }
  core_.Forget();
}

CoreEnd MonitoringLoop::JudgeCoreEnd() {
  CoreEnd end;
  if (const auto exit_code = core_.ExitCode()) {
    end.exit_code = *exit_code;
  } else {
    log_.LogWarn("Failed to get exit code for terminated PID {}. Error: {}", core_.Pid(),
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
  clock_.SleepFor(kDumpWriteWait);
  return end;
}

bool MonitoringLoop::UpdateEndedCore() {
  // If the Core outlived the attempt to end it, the next cycle attaches to it.
  return !core_.IsHeld() && services_.processes.FindCoreProcesses().empty();
}

void MonitoringLoop::Relaunch() {
  if (core_was_running_) log_.LogInfo("--- Target process is not running ---");
  core_was_running_ = false;
  log_.LogInfo("Crash Count So Far: {}", state_.crash_count);
  log_.LogInfo("Attempting relaunch of VELDRAN Core after {}ms delay...", kRelaunchDelay.count());
  clock_.SleepFor(kRelaunchDelay);
  // A Core that runs although we do not hold it (started by hand meanwhile, or refused to us) must
  // not get a twin; the next cycle attaches to it.
  if (const auto running = services_.processes.FindCoreProcesses(); !running.empty()) {
    log_.LogWarn("VELDRAN Core is already running (PID: {}). Not launching another one.",
                 running.front());
    return;
  }
  if (!core_.Launch()) RepairInstallation();
}

void MonitoringLoop::RepairInstallation() {
  log_.LogWarn("Attempting automated download and installation/repair of VELDRAN Core...");
  if (services_.msi_installer.AutomatedInstall(places_.TempDirectory())) {
    log_.LogInfo("Automated installation succeeded. Will attempt relaunch next cycle.");
    return;
  }
  log_.LogError("Automated installation failed. Cannot relaunch VELDRAN Core automatically.");
  log_.LogError("Please install VELDRAN Core manually and restart the reporter.");
  state_.g_terminateMonitoring.store(true);
  log_.LogWarn("Reporter will exit in 15 seconds due to installation failure.");
  clock_.SleepFor(kExitPause);
}

}  // namespace vosk::supervisor
