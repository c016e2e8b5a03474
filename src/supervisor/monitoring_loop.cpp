#include "supervisor/monitoring_loop.h"

#include "console/colours.h"
#include "console/uptime.h"
#include "platform/clock.h"
#include "supervisor/places.h"

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kMenuInterval{100};
constexpr milliseconds kShortageInterval{1000};
constexpr seconds kStatusReportInterval{15};
constexpr std::chrono::hours kScheduledRestartInterval{12};
constexpr milliseconds kRelaunchDelay{5000};
constexpr seconds kExitPause{15};
// A state that lasts is told of anew only so often.
constexpr std::chrono::minutes kShortageReportInterval{15};
constexpr seconds kLogRootSearchInterval{15};
// A Core that ends so soon after its launch, again and again, is launched ever more seldom; one
// that lives so long begins anew.
constexpr seconds kShortLife{60};
constexpr std::chrono::minutes kLongLife{10};
// Reports that wait are sent once the Core has run for so long.
constexpr std::chrono::minutes kUndisturbedLife{5};
constexpr seconds kLongestDisturbance{30};
constexpr BackoffPlan kCrashLoop{
    .free_failures = 5, .first = seconds(10), .longest = std::chrono::minutes(5)};
// What a repair has not mended is repaired ever more seldom; meanwhile launches are tried.
constexpr BackoffPlan kRepairs{.first = std::chrono::minutes(1), .longest = std::chrono::hours(1)};
constexpr BackoffPlan kLaunches{.first = seconds(10), .longest = std::chrono::minutes(10)};
// Launches of a Core that cannot be watched.
constexpr BackoffPlan kUnwatched{
    .free_failures = 5, .first = seconds(10), .longest = std::chrono::minutes(15)};

}  // namespace

MonitoringLoop::MonitoringLoop(Services& services)
    : services_(services),
      clock_(services.host.clock),
      log_(services.log),
      core_(services.core),
      state_(services.state),
      places_(services.places),
      repair_backoff_(kRepairs),
      launch_backoff_(kLaunches),
      monitor_backoff_(kUnwatched),
      crash_loop_backoff_(kCrashLoop) {}

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
  const bool out_of_reach = !ending && !core_.IsHeld() && core_.AttachToRunningCore();
  const bool core_runs = CheckCore(now) && !RestartWhenDue(now);
  if (!ending) services_.update_schedule.CheckPeriodically(now, core_runs);
  // A successor that has taken over launches the Core itself.
  if (state_.g_terminateMonitoring.load()) return;
  const bool none_runs = core_runs ? UpdateEndedCore() : core_.IsHeld() || !out_of_reach;
  const bool waits = none_runs && clock_.SteadyNow() < state_.relaunch_not_before;
  if (core_runs || waits) SendUnsentReports(now);
  if (none_runs && !waits) Relaunch();
  clock_.SleepFor(state_.menu_visible ? kMenuInterval : kMonitoringInterval);
}

bool MonitoringLoop::PassDiskGate() {
  const SteadyTime now = clock_.SteadyNow();
  if (services_.disk_space.CheckDiskSpace(places_.target_directory, /*verbose=*/false)) {
    if (shortage_reported_) {
      log_.LogInfo("Storage space is sufficient again. Resuming VOSK Operations.");
    }
    shortage_reported_.reset();
    return true;
  }
  if (!shortage_reported_ || now - *shortage_reported_ >= kShortageReportInterval) {
    services_.menu.CloseMenuIfOpen();
    log_.LogWarn("Storage space not sufficient. Halting VOSK Operations.");
    shortage_reported_ = now;
  }
  services_.menu.ReadQuitKey();
  clock_.SleepFor(kShortageInterval);
  return false;
}

void MonitoringLoop::ReadCoreVersion() {
  // The Core makes the folder in its first life, after VOSK has looked for it.
  if (places_.log_root_directory.empty()) {
    const SteadyTime now = clock_.SteadyNow();
    if (now < next_log_root_search_) return;
    next_log_root_search_ = now + kLogRootSearchInterval;
    const auto log_root = FindLogRoot(services_.host.system, services_.host.files);
    if (!log_root) return;
    log_.LogInfo("Target log root directory found: {}", *log_root);
    places_.log_root_directory = *log_root;
  }
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
      services_.core_end.HandleExpectedEnd();
    } else {
      NoteShortLife(now);
      services_.core_end.HandleCoreEnd();
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

void MonitoringLoop::SendUnsentReports(SteadyTime now) {
  if (state_.menu_visible) return;
  // While the launch of a Core is put off there is nothing to disturb.
  const auto uptime = core_.Uptime(now);
  const bool undisturbed = uptime ? *uptime >= kUndisturbedLife && core_.HasMonitor()
                                  : state_.relaunch_not_before - now >= kLongestDisturbance;
  if (!undisturbed) return;
  services_.unsent_reports.SendWhenDue(now);
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
  switch (core_.Launch()) {
    case LaunchOutcome::watched:
      repair_backoff_.Reset();
      launch_backoff_.Reset();
      monitor_backoff_.Reset();
      next_repair_ = {};
      break;
    case LaunchOutcome::unwatched:
      PutOffLaunch(monitor_backoff_.Fail());
      break;
    case LaunchOutcome::not_started:
      if (clock_.SteadyNow() >= next_repair_) return RepairInstallation();
      PutOffLaunch(launch_backoff_.Fail());
      break;
  }
}

void MonitoringLoop::PutOffLaunch(seconds wait) {
  // The delay that precedes every launch is part of the wait.
  if (wait <= kRelaunchDelay) return;
  state_.relaunch_not_before = clock_.SteadyNow() + wait - kRelaunchDelay;
  log_.LogWarn("The next launch of VELDRAN Core is due in {}. Menu item 1 launches it at once.",
               console::FormatUptime(wait));
}

void MonitoringLoop::NoteShortLife(SteadyTime now) {
  const auto life = core_.Uptime(now);
  if (!life || *life >= kLongLife) return crash_loop_backoff_.Reset();
  if (*life > kShortLife) return;
  const seconds wait = crash_loop_backoff_.Fail();
  if (wait.count() == 0) return;
  log_.LogWarn("VELDRAN Core has ended {} times within {} seconds of its launch.",
               crash_loop_backoff_.Failures(), kShortLife.count());
  PutOffLaunch(wait);
}

void MonitoringLoop::RepairInstallation() {
  if (!PassDiskGate()) return;
  log_.LogWarn("Attempting automated download and installation/repair of VELDRAN Core...");
  if (services_.msi_installer.AutomatedInstall(places_.TempDirectory())) {
    log_.LogInfo("Automated installation succeeded. Will attempt relaunch next cycle.");
    if (!FindCore(services_.host.files, log_, kSearchAfterInstallation, places_)) {
      log_.LogWarn("Target STILL not found after installation attempt.");
    }
    next_repair_ = clock_.SteadyNow() + repair_backoff_.Fail();
    return;
  }
  state_.failed = true;
  log_.LogError("Automated installation failed. Cannot relaunch VELDRAN Core automatically.");
  log_.LogError("Please install VELDRAN Core manually and restart the reporter.");
  state_.g_terminateMonitoring.store(true);
  log_.LogWarn("Reporter will exit in 15 seconds due to installation failure.");
  clock_.SleepFor(kExitPause);
}

}  // namespace vosk::supervisor
