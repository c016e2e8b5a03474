#include "net/download_progress.h"

#include <gtest/gtest.h>

namespace vosk::net {
namespace {

using namespace std::chrono_literals;

TEST(DownloadProgress, LinesAreRareButTheFirstAndTheLast) {
  struct Row {
    DownloadedBytes bytes;
    std::int64_t last_reported;
    std::chrono::milliseconds since;
    bool due;
  };
  const Row rows[] = {
      // A known total.
      {{1, 100}, kNothingReported, 0ms, true},
      {{1, 100}, 0, 500ms, false},
      {{1, 100}, 0, 501ms, true},
      {{100, 100}, 99, 0ms, true},
      {{100, 100}, 100, 1h, false},
      {{50, 100}, 60, 1h, false},
      // An unknown one.
      {{0, 0}, kNothingReported, 1000ms, false},
      {{1, 0}, 0, 1001ms, true},
      {{1, 0}, 1, 1h, false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(IsProgressLineDue(row.bytes, row.last_reported, row.since), row.due)
        << row.bytes.now << " of " << row.bytes.total << " after " << row.since.count() << " ms";
  }
}

TEST(DownloadProgress, TheTotalDecidesTheUnit) {
  const std::pair<DownloadedBytes, std::string> rows[] = {
      {{0, 0}, "Downloading: 0 KB / ???"},
      {{1023, 2047}, "Downloading: 0 KB / 1 KB (50.0%)"},
      {{1'048'575, 1'048'576}, "Downloading: 1023 KB / 1024 KB (100.0%)"},
      {{1'048'577, 1'048'577}, "Downloading: 1.00 MB / 1.00 MB (100.0%)"},
      {{1'572'864, 4'718'592}, "Downloading: 1.50 MB / 4.50 MB (33.3%)"},
      {{5'000'000'000, 10'000'000'000}, "Downloading: 4768.37 MB / 9536.74 MB (50.0%)"},
  };
  for (const auto& [bytes, line] : rows) EXPECT_EQ(ProgressLine(bytes), line);
}

}  // namespace
}  // namespace vosk::net
