// When a running download logs its progress, and in which words.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace vosk::net {

// The byte count of a download that has not reported anything yet.
inline constexpr std::int64_t kNothingReported = -1;

// How much of the answer has arrived, in bytes. A total of 0 means unknown.
struct DownloadedBytes {
  std::int64_t now = 0;
  std::int64_t total = 0;
};

// Returns whether a line is due: never twice for the same bytes, not too often, and always at the
// end. Until the first report, `since_last_report` counts from the start of the download.
[[nodiscard]] bool IsProgressLineDue(DownloadedBytes bytes, std::int64_t last_reported,
                                     std::chrono::steady_clock::duration since_last_report);

// Returns "Downloading: 256 KB / 512 KB (50.0%)".
[[nodiscard]] std::string ProgressLine(DownloadedBytes bytes);

}  // namespace vosk::net
