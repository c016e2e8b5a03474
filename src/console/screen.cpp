#include "console/screen.h"

#include <fmt/format.h>

namespace vosk::console {
namespace {

using platform::ConsoleInfo;
using platform::StandardStream;

constexpr std::string_view kScrollWholeWindow = "\x1b[r";

bool HasScrollRegion(const std::optional<ConsoleInfo>& window) {
  return window && window->Height() >= 2;
}

}  // namespace

std::optional<ConsoleInfo> DrawableWindow(platform::Console& console, const LogSink& log) {
  if (!log.ColourEnabled() || !log.ConsoleOutputValid()) return std::nullopt;
  const auto info = console.Info();
  if (!info || info->Width() < 1 || info->Height() < 1) return std::nullopt;
  return *info;
}

Screen::Screen(platform::Console& console, LogSink& log) : console_(console), log_(log) {}

void Screen::SetupScrollRegion() {
  if (const auto window = DrawableWindow(console_, log_)) LayOut(*window);
}

bool Screen::FollowWindowSize() {
  const auto window = DrawableWindow(console_, log_);
  if (!window) return false;
  if (laid_out_for_ && laid_out_for_->Width() == window->Width() &&
      laid_out_for_->Height() == window->Height()) {
    return false;
  }
  LayOut(*window);
  return true;
}

void Screen::LayOut(const ConsoleInfo& window) {
  const std::lock_guard lock(log_.ConsoleLock());
  const int last_scrolling_row = window.Height() - 1;
  if (HasScrollRegion(window)) {
    console_.Write(StandardStream::output,
                   fmt::format("\x1b[1;{}r\x1b[{};1H", last_scrolling_row, last_scrolling_row));
  } else if (HasScrollRegion(laid_out_for_)) {
    // Otherwise the region of the larger window would remain in force.
    console_.Write(StandardStream::output, kScrollWholeWindow);
  }
  laid_out_for_ = window;
}

void Screen::ClearScreen() {
  Clear("");
}

void Screen::Release() {
  Clear(kScrollWholeWindow);
}

void Screen::Clear(std::string_view before) {
  if (!DrawableWindow(console_, log_)) return;
  const std::lock_guard lock(log_.ConsoleLock());
  console_.Write(StandardStream::output, fmt::format("{}\x1b[2J\x1b[H", before));
}

}  // namespace vosk::console
