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
#include "supervisor/backoff.h"
#include "supervisor/places.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

// A monitor ends a moment before the Core whose crash it has written down; only one that is gone
// for longer has left the Core unwatched.
inline constexpr std::chrono::seconds kMonitorLossGrace{5};

enum class LaunchOutcome { watched, unwatched, not_started };
enum class MonitorChange { done, at_next_launch, not_launched };

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
  // 0: no Core. An ended Core keeps its PID until it is forgotten.
  [[nodiscard]] platform::ProcessId Pid() const { return target_pid_; }
  // Since the launch, or since attaching to a Core that ran before; none if there is no Core.
  [[nodiscard]] std::optional<std::chrono::steady_clock::duration> Uptime(SteadyTime now) const;
  // What the Core's runtime consists of, for reports on its crash; guarded by the console lock.
  [[nodiscard]] const report::ProcessModules& Modules() const { return captured_modules_; }
  [[nodiscard]] bool IsRunning();
  [[nodiscard]] platform::Result<std::uint32_t> ExitCode() const;

  // Takes up a Core that runs already, with a monitor of its own, or leaves it alone. Returns
  // whether a Core runs.
  [[nodiscard]] bool AttachToRunningCore();
  // Launches the target and has it watched; a Core that cannot be watched is ended again.
  [[nodiscard]] LaunchOutcome Launch();
  // From now on this is the Core to watch, and this its monitor.
  void Hold(platform::ProcessHandle process, platform::ProcessId pid);
  void HoldMonitor(platform::ProcessHandle monitor) { hProcDump_ = std::move(monitor); }

  // Attaches a fresh monitor if the old one has ended although its Core goes on.
  void WatchMonitor(SteadyTime now);
  // Attaches a monitor with the present dump settings; the old one is let go of only if the new one
  // stays. Takes two seconds.
  [[nodiscard]] MonitorChange ReattachMonitor();
  // Lets go of the monitor without ending it.
  void DropMonitor() { hProcDump_.Reset(); }

  // Ends the monitor, then the Core, and forgets both; the end is not counted as a crash. The
  // reason is for the log.
  void InitiateGracefulRestart(std::string_view reason);
  // Opens a Core anew that is known without a handle.
  [[nodiscard]] platform::Result<> Reopen();
  [[nodiscard]] platform::Result<platform::ProcessId> MonitorPid() const;
  // Ends both for an update, and every Core that runs unheld. Returns false if a Core outlived it.
  [[nodiscard]] bool EndForUpdate();
  // Ends both without waiting for them.
  void EndAtShutdown();
  // Closes the handle of a Core that has ended and ends its monitor. The PID and the modules stay
  // for the report on it.
  void CloseEnded();
  // There is no Core any more. The monitor is let go of separately.
  void Forget();

 private:
  void Adopt(platform::ProcessHandle process, platform::ProcessId pid);
  // Whether the process is known to have ended.
  [[nodiscard]] bool HasEnded(const platform::ProcessHandle& process);
  [[nodiscard]] platform::ProcessHandle LaunchMonitor();
  [[nodiscard]] bool AttachMonitor();
  std::size_t CaptureModules();
  [[nodiscard]] bool WatchLaunchedCore();

  void EndMonitorForUpdate();
  // Holds a Core that runs unheld, unless it has gone. Returns false if it cannot be opened.
  [[nodiscard]] bool HoldForUpdate(platform::ProcessId pid);
  [[nodiscard]] bool EndCoreForUpdate();
  // Asks a process that still lives for its end and waits for it, up to the limit.
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
  bool was_adopted_ = false;         // it ran before VOSK held it
  report::ProcessModules captured_modules_;
  SteadyTime monitor_launched_at_{};
  std::optional<SteadyTime> monitor_lost_at_;
  std::chrono::seconds monitor_retry_delay_ = kMonitorLossGrace;

  // A Core that runs, but could not be adopted.
  struct Refused {
    platform::ProcessId pid = 0;
    int times = 0;
    SteadyTime next_line{};
    SteadyTime next_monitor{};
    Backoff monitor_backoff{
        {.first = std::chrono::seconds(5), .longest = std::chrono::minutes(15)}};
  };
  Refused refused_;
};

}  // namespace vosk::supervisor
