// Keeps the Core running and watched until the supervisor is asked to end.
#pragma once

#include <chrono>
#include <optional>

#include "supervisor/backoff.h"
#include "supervisor/services.h"

namespace vosk::supervisor {

inline constexpr std::chrono::milliseconds kMonitoringInterval{500};

class MonitoringLoop {
 public:
  explicit MonitoringLoop(Services& services);

  // Cycles until `g_terminateMonitoring` is set. The Core and its monitor are left to the shutdown.
  void Run();

 private:
  using SteadyTime = SupervisorState::SteadyTime;

  void RunCycle();
  // Returns false if the cycle has to be skipped for lack of disk space.
  [[nodiscard]] bool PassDiskGate();
  void ReadCoreVersion();
  void RefreshDisplay();

  // Returns true while the watched Core runs.
  [[nodiscard]] bool CheckCore(SteadyTime now);
  void ReportRunning(SteadyTime now);
  // Returns true if the Core has run so long that it is restarted.
  [[nodiscard]] bool RestartWhenDue(SteadyTime now);

  void SendUnsentReports(SteadyTime now);

  // Returns whether a failed update has left no Core.
  [[nodiscard]] bool UpdateEndedCore();
  void Relaunch();
  // The wait counts from now and includes the delay of every launch.
  void PutOffLaunch(std::chrono::seconds wait);
  // Puts off the launch of a Core that does not live long enough.
  void NoteShortLife(SteadyTime now);
  void RepairInstallation();

  Services& services_;
  platform::Clock& clock_;
  console::LogSink& log_;
  WatchedCore& core_;
  SupervisorState& state_;
  Places& places_;

  bool core_was_running_ = false;
  std::optional<SteadyTime> shortage_reported_;
  SteadyTime next_log_root_search_{};
  SteadyTime next_repair_{};
  Backoff repair_backoff_;
  Backoff launch_backoff_;
  Backoff monitor_backoff_;
  Backoff crash_loop_backoff_;
  std::optional<SteadyTime> last_status_report_;
};

}  // namespace vosk::supervisor
