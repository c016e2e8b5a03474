// Keeps the Core running and watched until the supervisor is asked to end.
#pragma once

#include <optional>

#include "console/log.h"
#include "console/screen.h"
#include "dumps/dump_capture.h"
#include "platform/host.h"
#include "process/process_control.h"
#include "supervisor/crash_processing.h"
#include "supervisor/places.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

inline constexpr std::chrono::milliseconds kMonitoringInterval{500};
// A monitor ends a moment before the Core whose crash it has written down; only one that is gone
// for longer has left the Core unwatched.
inline constexpr std::chrono::seconds kMonitorLossGrace{5};

class MonitoringLoop {
 public:
  MonitoringLoop(const platform::Host& host, console::LogSink& log, console::Screen& screen,
                 process::ProcessControl& processes, dumps::DumpCapture& dump_capture,
                 CrashProcessing& crash_processing, const Places& places, SupervisorState& state);

  // Cycles until `g_terminateMonitoring` is set. The Core and its monitor are left to the shutdown.
  void Run();

 private:
  using SteadyTime = SupervisorState::SteadyTime;

  void RunCycle();
  void ReadKeyboard();

  void AttachToRunningCore();
  [[nodiscard]] bool OpenRunningCore(platform::ProcessId pid);

  // True while the watched Core runs.
  [[nodiscard]] bool CheckCore(SteadyTime now);
  void ReportRunning(SteadyTime now);
  void HandleCoreEnd();
  [[nodiscard]] CoreEnd JudgeCoreEnd();
  void EndMonitorOfDeadCore();

  // Attaches a fresh monitor where the old one has ended although its Core goes on.
  void WatchMonitor(SteadyTime now);

  void Relaunch();
  [[nodiscard]] bool LaunchCore();
  void WatchLaunchedCore();
  void ForgetCore();

  platform::Host host_;
  console::LogSink& log_;
  console::Screen& screen_;
  process::ProcessControl& processes_;
  dumps::DumpCapture& dump_capture_;
  CrashProcessing& crash_processing_;
  const Places& places_;
  SupervisorState& state_;

  bool core_was_running_ = false;
  std::optional<SteadyTime> last_status_report_;
  std::optional<SteadyTime> monitor_lost_at_;
  std::chrono::seconds monitor_retry_delay_ = kMonitorLossGrace;
};

}  // namespace vosk::supervisor
