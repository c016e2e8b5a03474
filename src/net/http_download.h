// Fetches a file over HTTP or HTTPS.
#pragma once

#include <atomic>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "net/downloader.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace vosk::net {

// When a download is given up. A long one is not, as long as data keeps coming.
struct DownloadLimits {
  long connect_seconds = 60;
  // A download that stays below this speed for this long is too slow.
  long slowest_bytes_per_second = 1'024;
  long slowest_seconds = 60;
};

class HttpDownloader : public Downloader {
 public:
  // Setting `g_terminateMonitoring` breaks off a running transfer.
  HttpDownloader(platform::Files& files, platform::Clock& clock, console::LogSink& log,
                 console::TransferProgress& progress,
                 const std::atomic<bool>& g_terminateMonitoring, DownloadLimits limits = {});

  bool DownloadFile(const std::string& url, const std::filesystem::path& destination) override;

 private:
  void RemoveIncompleteFile(const std::filesystem::path& destination);

  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
  const std::atomic<bool>& g_terminateMonitoring_;
  DownloadLimits limits_;
};

}  // namespace vosk::net
