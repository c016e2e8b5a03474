#include "supervisor/monitoring_loop.h"

#include <fmt/format.h>

#include "console/colours.h"
#include "console/uptime.h"
#include "identity.h"
#include "platform/clock.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kMenuInterval{100};
constexpr milliseconds kShortageInterval{1000};
constexpr seconds kStatusReportInterval{15};
constexpr std::chrono::hours kScheduledRestartInterval{12};

std::string CoreName() {
  return text::WideToUtf8(identity::kCoreExecutable);
}

}  // namespace

MonitoringLoop::MonitoringLoop(const platform::Host& host, console::LogSink& log,
                               const LoopServices& services, const Places& places,
                               SupervisorState& state)
    : host_(host), log_(log), services_(services), places_(places), state_(state) {}

void MonitoringLoop::Run() {
  while (!state_.g_terminateMonitoring.load()) RunCycle();
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
  host_.clock.SleepFor(kShortageInterval);
  return false;
}

void MonitoringLoop::RunCycle() {
  if (!PassDiskGate()) return;
  ReadCoreVersion();
  const SteadyTime now = host_.clock.SteadyNow();
  services_.menu.ReadKeyboard();
  RefreshDisplay();
  // Who is about to end must not take a Core from the successor that an update has brought.
  const bool ending = state_.g_terminateMonitoring.load();
  if (!ending && (state_.target_pid == 0 || !state_.hTargetProcess)) AttachToRunningCore();
  const bool core_runs = CheckCore(now) && !RestartWhenDue(now);
  if (!ending) services_.update.CheckPeriodically(now, core_runs);
  // A successor that has taken over launches the Core itself.
  if (state_.g_terminateMonitoring.load()) return;
  if (!core_runs || UpdateEndedCore()) Relaunch();
  host_.clock.SleepFor(state_.menu_visible ? kMenuInterval : kMonitoringInterval);
}

bool MonitoringLoop::UpdateEndedCore() {
  // A Core that outlived the attempt to end it is taken up by the next cycle.
  return !state_.hTargetProcess && services_.processes.FindCoreProcesses().empty();
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

void MonitoringLoop::AttachToRunningCore() {
  const process::ProcessList running = services_.processes.FindCoreProcesses();
  if (running.empty()) return;
  const platform::ProcessId pid = running.front();
  if (running.size() > 1) {
    log_.LogWarn("Multiple instances of '{}' found. Monitoring first detected (PID: {}).",
                 CoreName(), pid);
  }
  log_.LogInfo("Found existing instance of target (PID: {}).", pid);
  if (!OpenRunningCore(pid)) return;
  state_.hProcDump =
      services_.dump_capture.LaunchProcDumpMonitor(pid, places_.dump_storage_directory);
  if (!state_.hProcDump) {
    log_.LogError("Failed launch ProcDump for existing PID {}.", pid);
    log_.LogError("Detaching from existing process.");
    state_.ForgetCore(log_.ConsoleLock());
  }
}

bool MonitoringLoop::OpenRunningCore(platform::ProcessId pid) {
  auto process = host_.processes.Open(
      platform::access::kSynchronize | platform::access::kQueryLimitedInformation, pid);
  if (!process) {
    log_.LogError("Found running PID {}, but failed to open handle. Error: {}. Cannot monitor.",
                  pid, process.error());
    return false;
  }
  HoldCore(std::move(*process), pid);
  log_.LogInfo("Successfully attached to existing PID {}. Starting monitoring.", pid);
  log_.LogInfo("Captured {} runtime modules from existing process", CaptureModules());
  return true;
}

bool MonitoringLoop::CheckCore(SteadyTime now) {
  if (state_.target_pid == 0 || !state_.hTargetProcess) return false;
  if (!services_.processes.IsProcessAlive(state_.target_pid)) {
    if (state_.update_in_progress.load()) {
      HandleExpectedEnd();
    } else {
      HandleCoreEnd();
    }
    return false;
  }
  core_was_running_ = true;
  ReportRunning(now);
  WatchMonitor(now);
  return true;
}

void MonitoringLoop::ReportRunning(SteadyTime now) {
  if (last_status_report_ && now - *last_status_report_ < kStatusReportInterval) return;
  last_status_report_ = now;
  const auto colour = [this](std::string_view sequence) { return log_.Colour(sequence); };
  const auto reset = colour(console::kReset);
  log_.LogInfo("Target PID {}{}{} running for: {}{}{}. Crash count: {}{}{}",
               colour(console::kMagenta), state_.target_pid, reset, colour(console::kGreen),
               console::FormatUptime(now - state_.target_launch_time), reset,
               colour(console::kYellow), state_.crash_count, reset);
}

bool MonitoringLoop::RestartWhenDue(SteadyTime now) {
  const auto uptime = now - state_.target_launch_time;
  if (uptime <= kScheduledRestartInterval) return false;
  log_.LogWarn("Scheduled restart triggered. Uptime ({}) exceeded interval ({} hours).",
               console::FormatUptime(uptime), kScheduledRestartInterval.count());
  services_.restart.InitiateGracefulRestart("Scheduled Interval", state_.target_pid,
                                            state_.hTargetProcess, state_.hProcDump);
  return true;
}

void MonitoringLoop::HoldCore(platform::ProcessHandle process, platform::ProcessId pid) {
  state_.target_pid = pid;
  state_.hTargetProcess = std::move(process);
  state_.target_launch_time = host_.clock.SteadyNow();
  // What kept monitors from the last Core need not keep them from this one.
  monitor_lost_at_.reset();
  monitor_retry_delay_ = kMonitorLossGrace;
}

std::size_t MonitoringLoop::CaptureModules() {
  const std::lock_guard lock(log_.ConsoleLock());
  state_.captured_modules = services_.host_info.CaptureProcessModules(state_.hTargetProcess);
  return state_.captured_modules.size();
}

}  // namespace vosk::supervisor
