// Matchers for the log of a simulated host.
#pragma once

#include <gmock/gmock.h>

#include "simulation/log_recorder.h"
#include "tests/support/checked_host.h"

namespace vosk::support {

// These lines are in the log, whole and in this order; others may be between them.
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
