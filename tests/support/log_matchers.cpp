#include "tests/support/log_matchers.h"

#include <algorithm>

namespace vosk::support {

bool LogHasMatcher::MatchAndExplain(const LogText& log, std::ostream* explanation) const {
  auto at = log.begin();
  for (const std::string& line : wanted_) {
    const auto found = std::find(at, log.end(), line);
    if (found == log.end()) {
      if (explanation != nullptr) {
        const bool earlier = std::find(log.begin(), at, line) != at;
        *explanation << (earlier ? "out of order: " : "missing: ") << line << "\nThe log:\n";
        for (const std::string& logged : log) *explanation << "  " << logged << '\n';
      }
      return false;
    }
    at = found + 1;
  }
  return true;
}

void LogHasMatcher::DescribeTo(std::ostream* out) const {
  *out << "has these lines in this order:\n";
  for (const std::string& line : wanted_) *out << "  " << line << '\n';
}

void LogHasMatcher::DescribeNegationTo(std::ostream* out) const {
  *out << "not: ";
  DescribeTo(out);
}

}  // namespace vosk::support
