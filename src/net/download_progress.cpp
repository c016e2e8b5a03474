#include "net/download_progress.h"

#include <fmt/format.h>

namespace vosk::net {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kBytesPerKilobyte = 1'024;
constexpr std::int64_t kBytesPerMegabyte = 1'048'576;

}  // namespace

bool IsProgressLineDue(DownloadedBytes bytes, std::int64_t last_reported,
                       std::chrono::steady_clock::duration since_last_report) {
  if (bytes.now <= last_reported) return false;
  if (bytes.total <= 0) return since_last_report > 1s;
  if (bytes.now == bytes.total || last_reported == kNothingReported) return true;
  return since_last_report > 500ms;
}

std::string ProgressLine(DownloadedBytes bytes) {
  const auto [now, total] = bytes;
  if (total <= 0) return fmt::format("Downloading: {} KB / ???", now / kBytesPerKilobyte);
  const double percentage = static_cast<double>(now) * 100.0 / static_cast<double>(total);
  if (total <= kBytesPerMegabyte) {
    return fmt::format("Downloading: {} KB / {} KB ({:.1f}%)", now / kBytesPerKilobyte,
                       total / kBytesPerKilobyte, percentage);
  }
  const auto megabytes = [](std::int64_t count) {
    return static_cast<double>(count) / static_cast<double>(kBytesPerMegabyte);
  };
  return fmt::format("Downloading: {:.2f} MB / {:.2f} MB ({:.1f}%)", megabytes(now),
                     megabytes(total), percentage);
}

}  // namespace vosk::net
