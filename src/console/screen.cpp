#include "console/screen.h"

#include <fmt/format.h>

namespace vosk::console {

using platform::StandardStream;

Screen::Screen(platform::Console& console, LogSink& log) : console_(console), log_(log) {}

bool Screen::CanDraw() const {
  return log_.ColourEnabled() && log_.ConsoleOutputValid();
}

void Screen::SetupScrollRegion() {
  if (!CanDraw()) return;
  const std::lock_guard lock(log_.ConsoleLock());
  const auto info = console_.Info();
  if (!info) return;
  width_ = info->Width();
  height_ = info->Height();
  if (height_ < 2) return;
  const int last_scrolling_row = height_ - 1;
  console_.Write(StandardStream::output,
                 fmt::format("\x1b[1;{}r\x1b[{};1H", last_scrolling_row, last_scrolling_row));
}

void Screen::FollowWindowSize() {
  if (!CanDraw()) return;
  const auto info = console_.Info();
  if (info && (info->Width() != width_ || info->Height() != height_)) SetupScrollRegion();
}

void Screen::ClearScreen() {
  if (!CanDraw()) return;
  const std::lock_guard lock(log_.ConsoleLock());
  console_.Write(StandardStream::output, "\x1b[2J\x1b[H");
}

void Screen::Release() {
  if (!CanDraw()) return;
  const std::lock_guard lock(log_.ConsoleLock());
  console_.Write(StandardStream::output, "\x1b[r");
  ClearScreen();
}

}  // namespace vosk::console
