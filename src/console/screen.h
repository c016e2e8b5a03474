// The layout of the console: log lines scroll above the bottom row.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "console/log.h"
#include "platform/console.h"

namespace vosk::console {

// Returns the visible window if it can be drawn in: it accepts escape sequences, its size can be
// read and it has at least one row and one column. The size may change between two calls.
[[nodiscard]] std::optional<platform::ConsoleInfo> DrawableWindow(platform::Console& console,
                                                                  const LogSink& log);

// Draws only in a drawable window; elsewhere every call does nothing.
class Screen {
 public:
  Screen(platform::Console& console, LogSink& log);

  // Confines scrolling to all rows but the last and puts the cursor on the last of them. A window
  // of one row scrolls whole.
  void SetupScrollRegion();
  // Lays the screen out again when the window's size is no longer the one laid out for: the old
  // status bar goes, the lines move up by one row. True then, so that the caller can draw again
  // what stood in the window.
  bool FollowWindowSize();
  void ClearScreen();
  // Prints the last lines of the log, in a window that has just been cleared.
  void PrintRecentLines();
  // Gives the whole window back to whoever uses the console next, cleared and with the cursor at
  // its top.
  void Release();

 private:
  void LayOut(const platform::ConsoleInfo& window);
  // Wipes the row that the bar leaves behind inside a window that has grown.
  [[nodiscard]] std::string EraseOldBar(const platform::ConsoleInfo& window) const;
  void Clear(std::string_view before);

  platform::Console& console_;
  LogSink& log_;
  std::optional<platform::ConsoleInfo> laid_out_for_;
};

}  // namespace vosk::console
