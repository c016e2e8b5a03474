#include "supervisor/monitoring_loop.h"

#include <fmt/format.h>

#include "console/colours.h"
#include "console/uptime.h"
#include "identity.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kStatusReportInterval{15};

std::string CoreName() {
  return text::WideToUtf8(identity::kCoreExecutable);
}

}  // namespace

MonitoringLoop::MonitoringLoop(const platform::Host& host, console::LogSink& log,
                               console::Screen& screen, process::ProcessControl& processes,
                               dumps::DumpCapture& dump_capture, CrashProcessing& crash_processing,
                               const Places& places, SupervisorState& state)
    : host_(host),
      log_(log),
      screen_(screen),
      processes_(processes),
      dump_capture_(dump_capture),
      crash_processing_(crash_processing),
      places_(places),
      state_(state) {}

void MonitoringLoop::Run() {
  while (!state_.g_terminateMonitoring.load()) RunCycle();
}

void MonitoringLoop::RunCycle() {
  const SteadyTime now = host_.clock.SteadyNow();
  ReadKeyboard();
  screen_.FollowWindowSize();
  if (state_.target_pid == 0 || !state_.hTargetProcess) AttachToRunningCore();
  const bool core_runs = CheckCore(now);
  if (!core_runs) Relaunch();
  host_.clock.SleepFor(kMonitoringInterval);
}

void MonitoringLoop::ReadKeyboard() {
  if (!host_.console.KeyWaiting()) return;
  const int key = host_.console.ReadKey();
  if (key == 'Q' || key == 'q') {
    log_.LogWarn("Quit signal received by user. Shutting down...");
    state_.g_terminateMonitoring.store(true);
  }
}

void MonitoringLoop::AttachToRunningCore() {
  const process::ProcessList running = processes_.FindCoreProcesses();
  if (running.empty()) return;
  const platform::ProcessId pid = running.front();
  if (running.size() > 1) {
    log_.LogWarn(fmt::format(
        "Multiple instances of '{}' found. Monitoring first detected (PID: {}).", CoreName(), pid));
  }
  log_.LogInfo(fmt::format("Found existing instance of target (PID: {}).", pid));
  if (!OpenRunningCore(pid)) return;
  state_.hProcDump = dump_capture_.LaunchProcDumpMonitor(pid, places_.dump_storage_directory);
  if (!state_.hProcDump) {
    log_.LogError(fmt::format("Failed launch ProcDump for existing PID {}.", pid));
    log_.LogError("Detaching from existing process.");
    ForgetCore();
  }
}

bool MonitoringLoop::OpenRunningCore(platform::ProcessId pid) {
  auto process = host_.processes.Open(
      platform::access::kSynchronize | platform::access::kQueryLimitedInformation, pid);
  if (!process) {
    log_.LogError(
        fmt::format("Found running PID {}, but failed to open handle. Error: {}. Cannot monitor.",
                    pid, process.error().value));
    return false;
  }
  state_.target_pid = pid;
  state_.hTargetProcess = std::move(*process);
  state_.target_launch_time = host_.clock.SteadyNow();
  log_.LogInfo(fmt::format("Successfully attached to existing PID {}. Starting monitoring.", pid));
  return true;
}

bool MonitoringLoop::CheckCore(SteadyTime now) {
  if (state_.target_pid == 0 || !state_.hTargetProcess) return false;
  if (!processes_.IsProcessAlive(state_.target_pid)) {
    HandleCoreEnd();
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
  log_.LogInfo(fmt::format("Target PID {}{}{} running for: {}{}{}. Crash count: {}{}{}",
                           colour(console::kMagenta), state_.target_pid, reset,
                           colour(console::kGreen),
                           console::FormatUptime(now - state_.target_launch_time), reset,
                           colour(console::kYellow), state_.crash_count, reset));
}

void MonitoringLoop::ForgetCore() {
  state_.hTargetProcess.Reset();
  state_.target_pid = 0;
  state_.target_launch_time = {};
}

}  // namespace vosk::supervisor
