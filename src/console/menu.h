// The control menu, which replaces the log on the console while it is open.
#pragma once

#include <deque>
#include <string>

#include "console/log.h"
#include "platform/console.h"

namespace vosk::console {

inline constexpr int kMenuItems = 6;

struct MenuContents {
  int selection = 1;  // 1 to kMenuItems
  bool red_alert = false;
  const std::deque<std::string>& recent_lines;  // oldest first, with or without escape sequences
};

// Returns the menu for a window of that size. It clears the window, leaves the bottom row free and
// puts the cursor below its last row. A small window loses recent lines first and keeps the
// selected item to the last.
[[nodiscard]] std::string BuildMenu(const MenuContents& contents, int window_width,
                                    int window_height);

class Menu {
 public:
  Menu(platform::Console& console, LogSink& log);

  // Draws the menu with one write, then the status bar. Does nothing if the console does not accept
  // escape sequences.
  void RenderMenu(int selection, bool red_alert);

 private:
  platform::Console& console_;
  LogSink& log_;
};

}  // namespace vosk::console
