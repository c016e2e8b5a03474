// The layout of the console: log lines scroll above the bottom row.
#pragma once

#include "console/log.h"
#include "platform/console.h"

namespace vosk::console {

// Draws only where the console accepts escape sequences; elsewhere every call does nothing.
class Screen {
 public:
  Screen(platform::Console& console, LogSink& log);

  // Confines scrolling to all rows but the last and puts the cursor on the last of them.
  void SetupScrollRegion();
  // Lays the screen out again when the window's size is no longer the one laid out for.
  void FollowWindowSize();
  void ClearScreen();
  // Gives the whole window back to whoever uses the console next, cleared.
  void Release();

 private:
  [[nodiscard]] bool CanDraw() const;

  platform::Console& console_;
  LogSink& log_;
  int width_ = 0;
  int height_ = 0;
};

}  // namespace vosk::console
