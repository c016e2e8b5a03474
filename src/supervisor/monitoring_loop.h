// Keeps the Core running and watched until the supervisor is asked to end.
#pragma once

#include <chrono>
#include <optional>

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
  void HandleCoreEnd();
  void HandleExpectedEnd();
  [[nodiscard]] CoreEnd JudgeCoreEnd();

  // Returns whether a failed update has left no Core.
  [[nodiscard]] bool UpdateEndedCore();
  void Relaunch();
  void RepairInstallation();

  Services& services_;
  platform::Clock& clock_;
  console::LogSink& log_;
  WatchedCore& core_;
  SupervisorState& state_;
  const Places& places_;

  bool core_was_running_ = false;
  bool shortage_reported_ = false;
  std::optional<SteadyTime> last_status_report_;
};

}  // namespace vosk::supervisor
