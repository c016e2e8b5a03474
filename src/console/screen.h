// The layout of the console: log lines scroll above the bottom row.
#pragma once

#include <optional>

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
  // Lays the screen out again if the window's size has changed. Returns true then, so that the
  // caller can redraw the window's contents.
  bool FollowWindowSize();
  void ClearScreen();
  // Clears the window and lets it scroll as a whole again, for whoever uses the console next.
  void Release();

 private:
  void LayOut(const platform::ConsoleInfo& window);
  void Clear(std::string_view before);

  platform::Console& console_;
  LogSink& log_;
  std::optional<platform::ConsoleInfo> laid_out_for_;
};

}  // namespace vosk::console
