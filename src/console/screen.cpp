#include "console/screen.h"

#include <fmt/format.h>

#include "console/colours.h"

namespace vosk::console {
namespace {

using platform::ConsoleInfo;
using platform::StandardStream;

constexpr std::string_view kScrollWholeWindow = "\x1b[r";

bool HasScrollRegion(const std::optional<ConsoleInfo>& window) {
  return window && window->Height() >= 2;
}

bool HaveSameSize(const ConsoleInfo& one, const ConsoleInfo& other) {
  return one.Width() == other.Width() && one.Height() == other.Height();
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
  if (laid_out_for_ && HaveSameSize(*laid_out_for_, *window)) {
    // It may have moved over the console's buffer.
    laid_out_for_ = *window;
    return false;
  }
  LayOut(*window);
  return true;
}

void Screen::LayOut(const ConsoleInfo& window) {
  const std::lock_guard lock(log_.ConsoleLock());
  if (HasScrollRegion(window)) {
    // A line may have been written before the new size was seen; the next one must not replace it.
    const bool resized = laid_out_for_ && !HaveSameSize(*laid_out_for_, window);
    console_.Write(StandardStream::output,
                   fmt::format("\x1b[1;{0}r{1}\x1b[{0};1H{2}", window.Height() - 1,
                               EraseOldBar(window), resized ? "\n" : ""));
  } else if (HasScrollRegion(laid_out_for_)) {
    // Otherwise the region of the larger window would remain in force.
    console_.Write(StandardStream::output, kScrollWholeWindow);
  }
  laid_out_for_ = window;
}

std::string Screen::EraseOldBar(const ConsoleInfo& window) const {
  if (!laid_out_for_ || laid_out_for_->Height() == window.Height()) return {};
  // The window moves over the console's buffer; the old bar stays where it was in there.
  const int row = laid_out_for_->bottom - window.top + 1;
  if (row < 1 || row >= window.Height()) return {};
  return fmt::format("{}\x1b[{};1H\x1b[2K", kReset, row);
}

void Screen::ClearScreen() {
  if (DrawableWindow(console_, log_)) Clear("");
}

void Screen::PrintRecentLines() {
  if (!DrawableWindow(console_, log_)) return;
  const std::lock_guard lock(log_.ConsoleLock());
  std::string lines;
  for (const std::string& line : log_.RecentLogLines()) lines += line + '\n';
  if (!lines.empty()) console_.Write(StandardStream::output, lines);
}

void Screen::Release() {
  // A window that was laid out is given back even if it tells nothing of itself any more.
  if (!laid_out_for_ && !DrawableWindow(console_, log_)) return;
  Clear(kScrollWholeWindow);
  // Asked for once more: clearing may have moved the window over the console's buffer.
  const auto window = DrawableWindow(console_, log_);
  if (window) static_cast<void>(console_.SetCursor(window->left, window->top));
}

void Screen::Clear(std::string_view before) {
  const std::lock_guard lock(log_.ConsoleLock());
  console_.Write(StandardStream::output, fmt::format("{}\x1b[2J\x1b[H", before));
}

}  // namespace vosk::console
