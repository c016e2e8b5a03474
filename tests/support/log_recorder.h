// The log of a simulated host, and what tests say about it.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "console/log.h"
#include "tests/support/simulated_host.h"

namespace vosk::support {

using LogText = std::vector<std::string>;

// The lines of VOSK.log without date and time ("[WARN] ..."); lines without a stamp as they stand.
[[nodiscard]] LogText LogOf(const SimulatedHost& host);

// A log sink over the simulated host, its file opened; for tests of one service.
class LogRecorder {
 public:
  explicit LogRecorder(SimulatedHost& host);

  [[nodiscard]] console::LogSink& Sink() { return sink_; }
  // What was logged since the sink was made.
  [[nodiscard]] LogText Lines() const;

  bool menu_visible = false;

 private:
  SimulatedHost& host_;
  console::LogSink sink_;
  std::size_t lines_before_ = 0;
};

// These lines stand in the log, whole and in this order; others may stand between them.
class LogHasMatcher {
 public:
  using is_gtest_matcher = void;
  explicit LogHasMatcher(LogText wanted) : wanted_(std::move(wanted)) {}
  bool MatchAndExplain(const LogText& log, std::ostream* explanation) const;
  void DescribeTo(std::ostream* out) const;
  void DescribeNegationTo(std::ostream* out) const;

 private:
  LogText wanted_;
};

[[nodiscard]] inline testing::Matcher<const LogText&> LogHas(LogText wanted) {
  return LogHasMatcher(std::move(wanted));
}
// The log is exactly this.
[[nodiscard]] inline auto LogIs(const LogText& wanted) {
  return testing::ElementsAreArray(wanted);
}
// No line of the log holds this text.
[[nodiscard]] inline auto LogLacks(const std::string& text) {
  return testing::Each(testing::Not(testing::HasSubstr(text)));
}

}  // namespace vosk::support
