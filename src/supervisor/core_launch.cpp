// The monitoring loop when there is no Core: it launches one and has it watched.
#include <fmt/format.h>

#include "console/colours.h"
#include "platform/clock.h"
#include "supervisor/monitoring_loop.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kRelaunchDelay{5000};
// How long a fresh Core gets before a monitor is attached to it.
constexpr milliseconds kSettlingPause{2000};
constexpr std::chrono::seconds kExitPause{15};
constexpr std::uint32_t kTerminatedExitCode = 1;

}  // namespace

void MonitoringLoop::Relaunch() {
  if (core_was_running_) log_.LogInfo("--- Target process is not running ---");
  core_was_running_ = false;
  log_.LogInfo("Crash Count So Far: {}", state_.crash_count);
  log_.LogInfo("Attempting relaunch of VELDRAN Core after {}ms delay...", kRelaunchDelay.count());
  host_.clock.SleepFor(kRelaunchDelay);
  // A Core that runs although we do not hold it (started by hand meanwhile, or refused to us) must
  // not get a twin; the next cycle attaches to it.
  if (const auto running = services_.processes.FindCoreProcesses(); !running.empty()) {
    log_.LogWarn("VELDRAN Core is already running (PID: {}). Not launching another one.",
                 running.front());
    return;
  }
  if (LaunchCore()) {
    WatchLaunchedCore();
  } else {
    RepairInstallation();
  }
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
  host_.clock.SleepFor(kExitPause);
}

bool MonitoringLoop::LaunchCore() {
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
  HoldCore(std::move(started->handle), started->pid);
  return true;
}

void MonitoringLoop::WatchLaunchedCore() {
  const platform::ProcessId pid = state_.target_pid;
  host_.clock.SleepFor(kSettlingPause);
  log_.LogInfo("Captured {} runtime modules from target process", CaptureModules());
  log_.LogInfo("New Target Process PID: {}{}{}", log_.Colour(console::kMagenta), pid,
               log_.Colour(console::kReset));
  state_.hProcDump =
      services_.procdump_monitor.LaunchProcDumpMonitor(pid, places_.dump_storage_directory);
  if (state_.hProcDump) {
    log_.LogInfo("ProcDump monitor started for new target PID {}", pid);
    return;
  }
  log_.LogError("Successfully relaunched target PID {}, but FAILED to launch ProcDump monitor!",
                pid);
  log_.LogWarn("Crash dump generation will NOT occur.");
  log_.LogError("Terminating the newly launched target process.");
  services_.processes.TerminateProcessL(state_.hTargetProcess, kTerminatedExitCode);
  state_.ForgetCore(log_.ConsoleLock());
}

}  // namespace vosk::supervisor
