// Keeps the Core running and watched until the supervisor is asked to end.
#pragma once

#include <optional>

#include "console/log.h"
#include "console/screen.h"
#include "console/status_bar.h"
#include "dumps/dump_capture.h"
#include "install/core_version.h"
#include "install/disk_space.h"
#include "install/msi_installer.h"
#include "platform/host.h"
#include "process/process_control.h"
#include "report/host_info.h"
#include "supervisor/core_update.h"
#include "supervisor/crash_processing.h"
#include "supervisor/graceful_restart.h"
#include "supervisor/menu_actions.h"
#include "supervisor/places.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

inline constexpr std::chrono::milliseconds kMonitoringInterval{500};
// A monitor ends a moment before the Core whose crash it has written down; only one that is gone
// for longer has left the Core unwatched.
inline constexpr std::chrono::seconds kMonitorLossGrace{5};

// What the loop calls upon.
struct LoopServices {
  console::Screen& screen;
  console::StatusBar& status_bar;
  install::CoreVersion& core_version;
  process::ProcessControl& processes;
  dumps::DumpCapture& dump_capture;
  report::HostInfo& host_info;
  CrashProcessing& crash_processing;
  GracefulRestart& restart;
  MenuActions& menu;
  install::DiskSpace& disk_space;
  install::MsiInstaller& msi_installer;
  CoreUpdate& update;
};

class MonitoringLoop {
 public:
  MonitoringLoop(const platform::Host& host, console::LogSink& log, const LoopServices& services,
                 const Places& places, SupervisorState& state);

  // Cycles until `g_terminateMonitoring` is set. The Core and its monitor are left to the shutdown.
  void Run();

 private:
  using SteadyTime = SupervisorState::SteadyTime;

  void RunCycle();
  // False where the cycle has to be left out for want of room.
  [[nodiscard]] bool PassDiskGate();
  // True where a failed update has left no Core.
  [[nodiscard]] bool UpdateEndedCore();
  void ReadCoreVersion();
  void RefreshDisplay();

  void AttachToRunningCore();
  [[nodiscard]] bool OpenRunningCore(platform::ProcessId pid);

  // True while the watched Core runs.
  [[nodiscard]] bool CheckCore(SteadyTime now);
  void ReportRunning(SteadyTime now);
  // True where the Core has run so long that it is restarted.
  [[nodiscard]] bool RestartWhenDue(SteadyTime now);
  void HandleCoreEnd();
  void HandleExpectedEnd();
  [[nodiscard]] CoreEnd JudgeCoreEnd();
  void EndMonitorOfDeadCore();

  // Attaches a fresh monitor where the old one has ended although its Core goes on.
  void WatchMonitor(SteadyTime now);

  void Relaunch();
  [[nodiscard]] bool LaunchCore();
  void RepairInstallation();
  void WatchLaunchedCore();
  // From now on this is the Core to watch.
  void HoldCore(platform::ProcessHandle process, platform::ProcessId pid);
  // The number of modules of the Core's runtime that are kept for reports.
  std::size_t CaptureModules();

  platform::Host host_;
  console::LogSink& log_;
  LoopServices services_;
  const Places& places_;
  SupervisorState& state_;

  bool core_was_running_ = false;
  bool shortage_reported_ = false;
  std::optional<SteadyTime> last_status_report_;
  std::optional<SteadyTime> monitor_lost_at_;
  std::chrono::seconds monitor_retry_delay_ = kMonitorLossGrace;
};

}  // namespace vosk::supervisor
