#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace vosk::supervisor {

// What the supervisor remembers besides the Core itself. Plain data.
struct SupervisorState {
  using SteadyTime = std::chrono::steady_clock::time_point;

  std::int64_t crash_count = 0;
  // The version service's last answer, empty if there was none, and when it was asked.
  std::string last_fetched_version;
  SteadyTime last_update_check_time{};
  // The Core is not launched before this; zero: as soon as it is down.
  SteadyTime relaunch_not_before{};
  // What VOSK ended for was not meant: whoever started it may start it again.
  bool failed = false;

  std::atomic<bool> g_terminateMonitoring{false};
  std::atomic<bool> red_alert_mode{false};
  std::atomic<bool> restart_in_progress{false};
  std::atomic<bool> update_in_progress{false};
  bool menu_visible = false;
  int menu_selection = 1;
};

}  // namespace vosk::supervisor
