// The log sink: one call writes a line to VOSK.log, to the recent lines and to the console.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>

#include "text/formatters.h"

namespace vosk::platform {
class Clock;
class Console;
class Files;
class System;
}  // namespace vosk::platform

namespace vosk::console {

class LogSink {
 public:
  // While `menu_visible` is set, lines stay off the console. All references outlive the sink.
  LogSink(platform::Console& console, platform::Files& files, platform::System& system,
          platform::Clock& clock, const bool& menu_visible);
  ~LogSink();

  // Opens VOSK.log in the temporary directory for appending. A failure is reported on standard
  // error; the log then goes on without its file.
  void OpenLogFile();

  // Switches escape sequences on for both standard streams and sets the colour flag if either
  // accepted them. Returns the flag's previous value.
  bool EnableVirtualTerminal();

  // Level and message are UTF-8. Every level but "WARN" and "ERROR" is treated like "INFO".
  void LogMessage(std::string_view level, std::string_view message);
  void LogInfo(std::string_view message) { LogMessage("INFO", message); }
  void LogWarn(std::string_view message) { LogMessage("WARN", message); }
  void LogError(std::string_view message) { LogMessage("ERROR", message); }
  void LogInfo(std::u16string_view message);
  void LogWarn(std::u16string_view message);
  void LogError(std::u16string_view message);

  // The same with arguments, which may also be paths and errors of the system.
  template <typename Arg, typename... Args>
  void LogInfo(fmt::format_string<const Arg&, const Args&...> format, const Arg& arg,
               const Args&... args) {
    LogFormatted("INFO", format, fmt::make_format_args(arg, args...));
  }
  template <typename Arg, typename... Args>
  void LogWarn(fmt::format_string<const Arg&, const Args&...> format, const Arg& arg,
               const Args&... args) {
    LogFormatted("WARN", format, fmt::make_format_args(arg, args...));
  }
  template <typename Arg, typename... Args>
  void LogError(fmt::format_string<const Arg&, const Args&...> format, const Arg& arg,
                const Args&... args) {
    LogFormatted("ERROR", format, fmt::make_format_args(arg, args...));
  }

  // Shows a transient line of a transfer, even over the menu; it does not become a recent line.
  void LogProgress(std::string_view text);

  // Called under the console lock after every console line; set once.
  void SetRedrawHook(std::function<void()> redraw) { redraw_ = std::move(redraw); }
  // Redraws the status bar, if there is one.
  void RedrawStatusBar();

  // Remembers whether a cursor can be positioned on standard output.
  void SetConsoleOutputValid(bool valid) { console_output_valid_ = valid; }
  [[nodiscard]] bool ConsoleOutputValid() const { return console_output_valid_; }

  [[nodiscard]] bool ColourEnabled() const { return colour_flag_.load(); }
  // Returns the sequence, or nothing if the console does not understand it.
  [[nodiscard]] std::string_view Colour(std::string_view sequence) const {
    return ColourEnabled() ? sequence : std::string_view{};
  }

  // Serialises everything that goes to the console. Recursive: a log line redraws the status bar
  // while it holds the lock.
  [[nodiscard]] std::recursive_mutex& ConsoleLock() { return console_lock_; }
  // Returns how many lines have been logged in all; a new number means new recent lines.
  [[nodiscard]] std::uint64_t LinesLogged() const { return lines_logged_; }
  // Returns the last lines, oldest first, as the console shows them; guarded by the console lock.
  [[nodiscard]] const std::deque<std::string>& RecentLogLines() const { return recent_log_lines_; }

 private:
  void LogFormatted(std::string_view level, fmt::string_view format, fmt::format_args args);
  void TryOpenLogFile();
  void PrintStartupError(std::string_view text);
  void WriteToFile(std::string_view line);
  void WriteToConsole(std::string_view level, const std::string& line);
  [[nodiscard]] std::string ConsoleLine(std::string_view time, std::string_view level,
                                        std::string_view message) const;

  platform::Console& console_;
  platform::Files& files_;
  platform::System& system_;
  platform::Clock& clock_;
  const bool& menu_visible_;
  std::unique_ptr<std::ostream> log_file_;
  std::atomic<bool> colour_flag_{false};
  bool console_output_valid_ = false;
  std::recursive_mutex console_lock_;
  std::deque<std::string> recent_log_lines_;
  std::uint64_t lines_logged_ = 0;
  std::function<void()> redraw_;
};

}  // namespace vosk::console
