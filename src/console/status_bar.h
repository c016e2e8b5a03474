// The status bar on the bottom row of the console.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "platform/console.h"
#include "platform/types.h"

namespace vosk::console {

// What the bar shows of the supervisor.
struct StatusSnapshot {
  platform::ProcessId core_pid = 0;  // 0: no Core
  std::string core_version = {};
  std::int64_t crash_count = 0;
  std::optional<std::chrono::steady_clock::duration> uptime = {};  // none: no Core
  // None: no Core is waited for, or it is launched at once.
  std::optional<std::chrono::steady_clock::duration> next_launch = {};
  bool red_alert = false;
};

// The row for a window of that many columns, coloured to its right edge; nothing for a window
// without columns. Fields keep their places while their values grow and, from 120 columns on, while
// transfers come and go. A narrow window loses the least important segments.
[[nodiscard]] std::string BuildStatusRow(const StatusSnapshot& status,
                                         const TransferProgress& progress, int window_width);

class StatusBar {
 public:
  using SnapshotSource = std::function<StatusSnapshot()>;

  // All references outlive the bar; the source is asked each time the bar is drawn.
  StatusBar(platform::Console& console, LogSink& log, const TransferProgress& progress,
            SnapshotSource snapshot);

  // Draws the bar with one write and leaves the cursor where it was. Does nothing if the console
  // does not accept escape sequences.
  void DrawStatusBar();

 private:
  platform::Console& console_;
  LogSink& log_;
  const TransferProgress& progress_;
  SnapshotSource snapshot_;
};

}  // namespace vosk::console
