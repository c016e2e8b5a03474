#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/types.h"
#include "report/host_info/process_module.h"

namespace vosk::supervisor {

// What the monitoring loop knows of the Core and of itself. Plain data; the loop and the sequences
// that it starts change it, lower floors are handed what they need of it.
struct SupervisorState {
  using SteadyTime = std::chrono::steady_clock::time_point;

  platform::ProcessId target_pid = 0;  // 0: no Core
  platform::ProcessHandle hTargetProcess;
  platform::ProcessHandle hProcDump;
  SteadyTime target_launch_time{};  // zero: no Core; the time of attaching where it ran before us
  std::int64_t crash_count = 0;
  // What the version service said last, and when it was asked; empty: it could not be asked.
  std::string last_fetched_version;
  SteadyTime last_update_check_time{};
  // What the Core's runtime consists of, for reports on a crash of it; guarded by the console lock.
  report::ProcessModules captured_modules;

  std::atomic<bool> g_terminateMonitoring{false};
  std::atomic<bool> red_alert_mode{false};
  std::atomic<bool> restart_in_progress{false};
  std::atomic<bool> update_in_progress{false};
  bool menu_visible = false;
  int menu_selection = 1;

  // There is no Core any more: closes its handle and forgets what was known of it.
  void ForgetCore(std::recursive_mutex& console_lock) {
    hTargetProcess.Reset();
    target_pid = 0;
    target_launch_time = {};
    const std::lock_guard lock(console_lock);
    captured_modules.clear();
  }
};

}  // namespace vosk::supervisor
