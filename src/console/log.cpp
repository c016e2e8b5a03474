#include "console/log.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <filesystem>

#include "console/colours.h"
#include "identity.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/files.h"
#include "platform/system.h"
#include "text/utf.h"

namespace vosk::console {
namespace {

using platform::StandardStream;

constexpr std::size_t kRecentLines = 10;

std::string_view LevelColour(std::string_view level) {
  if (level == "WARN") return kYellow;
  if (level == "ERROR") return kRed;
  return kCyan;
}

StandardStream StreamOf(std::string_view level) {
  return level == "ERROR" || level == "WARN" ? StandardStream::error : StandardStream::output;
}

bool EnableEscapeSequences(platform::Console& console, StandardStream stream) {
  if (!console.HasStream(stream)) return false;
  const auto mode = console.Mode(stream);
  if (!mode) return false;
  if ((*mode & platform::kVirtualTerminalProcessing) != 0) return true;
  return console.SetMode(stream, *mode | platform::kVirtualTerminalProcessing).has_value();
}

}  // namespace

LogSink::LogSink(platform::Console& console, platform::Files& files, platform::System& system,
                 platform::Clock& clock, const bool& menu_visible)
    : console_(console),
      files_(files),
      system_(system),
      clock_(clock),
      menu_visible_(menu_visible) {}

LogSink::~LogSink() = default;

bool LogSink::EnableVirtualTerminal() {
  const bool output = EnableEscapeSequences(console_, StandardStream::output);
  const bool error = EnableEscapeSequences(console_, StandardStream::error);
  return colour_flag_.exchange(output || error);
}

void LogSink::OpenLogFile() {
  try {
    TryOpenLogFile();
  } catch (const std::filesystem::filesystem_error& problem) {
    PrintStartupError(fmt::format("E: Filesystem exception opening log: {}", problem.what()));
  } catch (const std::exception& problem) {
    PrintStartupError(fmt::format("E: Standard exception opening log: {}", problem.what()));
  } catch (...) {
    PrintStartupError("E: Unknown exception opening log file.");
  }
}

void LogSink::TryOpenLogFile() {
  const auto temp = system_.TempPath();
  if (!temp) {
    PrintStartupError(fmt::format("E: GetTempPathW failed: {}", temp.error()));
    return;
  }
  const auto& spelling = temp->native();
  const bool closed =
      !spelling.empty() &&
      (spelling.back() == '\\' || spelling.back() == std::filesystem::path::preferred_separator);
  // The separator and the terminator still have to fit.
  if (!closed && spelling.size() > platform::kMaxPath - 2) {
    PrintStartupError("E: Temp path buffer too small to add trailing slash.");
    return;
  }
  const std::filesystem::path path = *temp / identity::kLogFileName;
  auto stream = files_.OpenForAppending(path);
  if (!stream) {
    PrintStartupError(fmt::format("E: Failed to open log file: {} Errno: {}",
                                  text::TryPathToUtf8(path).value_or("<conversion_error>"),
                                  stream.error()));
    return;
  }
  log_file_ = std::move(*stream);
  *log_file_ << "\n--- Log Session Start ---\n" << std::flush;
}

void LogSink::PrintStartupError(std::string_view text) {
  console_.Write(StandardStream::error, fmt::format("{}{}{}\n", kRed, text, kReset));
}

void LogSink::LogMessage(std::string_view level, std::string_view message) {
  const std::tm now = clock_.ToLocal(clock_.WallNow());
  WriteToFile(fmt::format("{:%Y-%m-%d %H:%M:%S} [{}] {}\n", now, level, message));

  const std::string line = ConsoleLine(fmt::format("{:%H:%M:%S}", now), level, message);
  {
    const std::lock_guard lock(console_lock_);
    if (recent_log_lines_.size() >= kRecentLines) recent_log_lines_.pop_front();
    recent_log_lines_.push_back(line);
    ++lines_logged_;
  }
  if (menu_visible_) return;
  WriteToConsole(level, line);
}

void LogSink::LogFormatted(std::string_view level, fmt::string_view format, fmt::format_args args) {
  LogMessage(level, fmt::vformat(format, args));
}

void LogSink::WriteToConsole(std::string_view level, const std::string& line) {
  const std::lock_guard lock(console_lock_);
  const StandardStream stream = StreamOf(level);
  const auto info = ColourEnabled() && console_output_valid_
                        ? console_.Info()
                        : tl::unexpected(platform::kInvalidHandle);
  if (!info) {
    console_.Write(stream, fmt::format("{}\n", line));
  } else {
    // This is the row above the status bar; the line end scrolls the region.
    console_.Write(stream, fmt::format("\x1b[{};1H{}\n", info->bottom - info->top, line));
  }
  RedrawStatusBar();
}

std::string LogSink::ConsoleLine(std::string_view time, std::string_view level,
                                 std::string_view message) const {
  if (!ColourEnabled()) return fmt::format("{} [{}] {}", time, level, message);
  return fmt::format("{grey}{}{reset}{grey} [{reset}{bold}{}{}{reset}{grey}]{reset} {}{}{reset}",
                     time, LevelColour(level), level, kWhite, message, fmt::arg("grey", kGrey),
                     fmt::arg("reset", kReset), fmt::arg("bold", kBold));
}

void LogSink::LogInfo(std::u16string_view message) {
  LogInfo(text::WideToUtf8(message));
}
void LogSink::LogWarn(std::u16string_view message) {
  LogWarn(text::WideToUtf8(message));
}
void LogSink::LogError(std::u16string_view message) {
  LogError(text::WideToUtf8(message));
}

void LogSink::LogProgress(std::string_view text) {
  console_.Write(StandardStream::output,
                 fmt::format("{}{}{}\n", Colour(kGreen), text, Colour(kReset)));
  WriteToFile(
      fmt::format("{:%Y-%m-%d %H:%M:%S} [PROG] {}\n", clock_.ToLocal(clock_.WallNow()), text));
}

void LogSink::RedrawStatusBar() {
  if (redraw_) redraw_();
}

void LogSink::WriteToFile(std::string_view line) {
  if (!log_file_) return;
  // A disk that was full for a while must not silence the file for good.
  log_file_->clear();
  *log_file_ << line << std::flush;
}

}  // namespace vosk::console
