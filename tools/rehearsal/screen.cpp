#include "tools/rehearsal/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace vosk::rehearsal {

void WatchScreen(Life& life, double speed) {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    life.host.console.info.right = size.ws_col - 1;
    life.host.console.info.bottom = size.ws_row - 1;
  }
  life.host.console.on_write = [](std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
  };
  // Windows programs set the cursor by a call, a terminal needs a sequence.
  life.host.console.on_cursor = [](int column, int row) {
    std::printf("\x1b[%d;%dH", row + 1, column + 1);
  };
  life.host.clock.SetLeap(Duration(0));
  life.host.clock.on_advance = [speed](Duration passed) {
    std::fflush(stdout);
    std::this_thread::sleep_for(passed / speed);
  };
}

}  // namespace vosk::rehearsal
