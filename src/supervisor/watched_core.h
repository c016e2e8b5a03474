// The Core that VOSK keeps alive, together with the ProcDump monitor attached to it.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "console/log.h"
#include "dumps/procdump_monitor.h"
#include "platform/host.h"
#include "platform/processes.h"
#include "process/process_control.h"
#include "report/host_info/process_module.h"
#include "supervisor/places.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

// A monitor that has written a crash dump ends a moment before its Core; only if it is gone for
// longer, the Core is unwatched.
inline constexpr std::chrono::seconds kMonitorLossGrace{5};

// Nobody else holds the handles of the two processes. A Core is held from the moment at which it is
// attached to or launched until it is forgotten; every failure is logged where it happens.
class WatchedCore {
 public:
  using SteadyTime = SupervisorState::SteadyTime;

  WatchedCore(const platform::Host& host, console::LogSink& log, process::ProcessControl& processes,
              dumps::ProcDumpMonitor& procdump_monitor, const Places& places,
              SupervisorState& state);

  [[nodiscard]] bool IsHeld() const { return target_pid_ != 0 && hTargetProcess_; }
  [[nodiscard]] bool HasMonitor() const { return static_cast<bool>(hProcDump_); }
  // Returns 0 if there is no Core. An ended Core keeps its PID until it is forgotten.
  [[nodiscard]] platform::ProcessId Pid() const { return target_pid_; }
  // Returns the time since the launch, or since attaching to a Core that ran before; nothing if
  // there is no Core.
  [[nodiscard]] std::optional<std::chrono::steady_clock::duration> Uptime(SteadyTime now) const;
  // Returns the Core's runtime modules, for reports on its crash; guarded by the console lock.
  [[nodiscard]] const report::ProcessModules& Modules() const { return captured_modules_; }
  [[nodiscard]] bool IsRunning();
  [[nodiscard]] platform::Result<std::uint32_t> ExitCode() const;

  // Attaches to a Core that already runs, with a fresh monitor, or leaves it alone.
  void AttachToRunningCore();
  // Launches the target and has it watched; a Core that cannot be watched is ended again. Returns
  // false only if it could not be started at all.
  [[nodiscard]] bool Launch();
  // From now on this is the Core to watch, and this its monitor.
  void Hold(platform::ProcessHandle process, platform::ProcessId pid);
  void HoldMonitor(platform::ProcessHandle monitor) { hProcDump_ = std::move(monitor); }

  // Attaches a fresh monitor if the old one has ended although its Core goes on.
  void WatchMonitor(SteadyTime now);
  // Lets go of the monitor and attaches one with the present dump settings.
  [[nodiscard]] bool ReattachMonitor();
  // Lets go of the monitor without ending it.
  void DropMonitor() { hProcDump_.Reset(); }

  // Ends the monitor, then the Core, and forgets both; the end is not counted as a crash. The
  // reason is for the log.
  void InitiateGracefulRestart(std::string_view reason);
  // Checks the held processes before an update. `core_runs` is what the cycle has found.
  void ValidateBeforeUpdate(bool core_runs);
  // Ends both for an update. Returns false if the Core outlived it.
  [[nodiscard]] bool EndForUpdate();
  // Ends both without waiting for them.
  void EndAtShutdown();
  // Closes the handle of a Core that has ended and ends its monitor. The PID and the modules stay
  // for the report on it.
  void CloseEnded();
  // Forgets the Core; the monitor is let go of separately.
  void Forget();

 private:
  [[nodiscard]] bool OpenRunningCore(platform::ProcessId pid);
  [[nodiscard]] bool AttachMonitor();
  std::size_t CaptureModules();
  void WatchLaunchedCore();

  [[nodiscard]] bool ReopenForUpdate();
  void ValidateMonitor();
  void EndMonitorForUpdate();
  // Terminates the process and waits for its end, up to the limit.
  void End(platform::ProcessHandle& process, std::uint32_t exit_code,
           std::chrono::milliseconds limit);

  platform::Host host_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
  dumps::ProcDumpMonitor& procdump_monitor_;
  const Places& places_;
  SupervisorState& state_;

  platform::ProcessId target_pid_ = 0;
  platform::ProcessHandle hTargetProcess_;
  platform::ProcessHandle hProcDump_;
  SteadyTime target_launch_time_{};  // zero: no Core
  report::ProcessModules captured_modules_;
  std::optional<SteadyTime> monitor_lost_at_;
  std::chrono::seconds monitor_retry_delay_ = kMonitorLossGrace;
};

}  // namespace vosk::supervisor
