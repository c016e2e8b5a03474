#include "net/http_download.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "net/download_progress.h"
#include "net/easy_handle.h"
#include "net/redirections.h"

namespace vosk::net {
namespace {

constexpr double kHighestRunningPercentage = 99.9;

std::string TextOfErrno(int number) {
  return std::generic_category().message(number);
}

// The file that is being written. The first failure counts; nothing is written after it.
class DownloadedFile {
 public:
  explicit DownloadedFile(std::unique_ptr<std::ostream> stream) : stream_(std::move(stream)) {}

  std::size_t Write(const char* data, std::size_t size) {
    errno = 0;
    stream_->write(data, static_cast<std::streamsize>(size));
    return Check() ? size : 0;
  }

  // Gives the file back to everybody. Returns the error number of a write that failed, or 0.
  int Close() {
    errno = 0;
    stream_->flush();
    Check();
    stream_.reset();
    return error_;
  }

 private:
  bool Check() {
    if (error_ == 0 && !stream_->good()) error_ = errno != 0 ? errno : EIO;
    return error_ == 0;
  }

  std::unique_ptr<std::ostream> stream_;
  int error_ = 0;
};

// Shows how far one transfer has come and tells when it has to stop.
class ProgressReporter {
 public:
  ProgressReporter(CURL* easy, platform::Clock& clock, console::LogSink& log,
                   console::TransferProgress& progress,
                   const std::atomic<bool>& g_terminateMonitoring)
      : easy_(easy),
        clock_(clock),
        log_(log),
        progress_(progress),
        g_terminateMonitoring_(g_terminateMonitoring),
        last_report_(clock.SteadyNow()) {}

  // False if the transfer is to be broken off.
  bool Report(DownloadedBytes bytes) {
    if (!Redirects()) Show(bytes);
    if (!g_terminateMonitoring_.load()) return true;
    log_.LogWarn("Download interrupted by termination request.");
    return false;
  }

 private:
  // Whether what arrives is only a page about a redirection.
  [[nodiscard]] bool Redirects() const {
    long status = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    return status >= 300 && status < 400;
  }

  void Show(DownloadedBytes bytes) {
    if (bytes.total > 0) {
      const double percentage =
          static_cast<double>(bytes.now) * 100.0 / static_cast<double>(bytes.total);
      progress_.Set(std::min(percentage, kHighestRunningPercentage));
    }
    const auto now = clock_.SteadyNow();
    if (IsProgressLineDue(bytes, last_reported_, now - last_report_)) {
      last_reported_ = bytes.now;
      last_report_ = now;
      log_.LogProgress(ProgressLine(bytes));
      log_.RedrawStatusBar();
    }
  }

  CURL* easy_;
  platform::Clock& clock_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
  const std::atomic<bool>& g_terminateMonitoring_;
  std::int64_t last_reported_ = kNothingReported;
  std::chrono::steady_clock::time_point last_report_;
};

std::size_t WriteBody(char* data, std::size_t size, std::size_t count, void* file) noexcept {
  return static_cast<DownloadedFile*>(file)->Write(data, size * count);
}

int ShowProgress(void* reporter, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t) noexcept
    try {
  const DownloadedBytes bytes{.now = now, .total = total};
  return static_cast<ProgressReporter*>(reporter)->Report(bytes) ? 0 : 1;
} catch (...) {
  // libcurl must not be unwound; without memory for a line the transfer ends.
  return 1;
}

void SetOptions(CURL* easy, const std::string& url, DownloadedFile& file,
                ProgressReporter& reporter, const DownloadLimits& limits) {
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, WriteBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &file);
  FollowRedirections(easy, url);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, ShowProgress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &reporter);
  curl_easy_setopt(easy, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT, 0L);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, limits.connect_seconds);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, limits.slowest_bytes_per_second);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, limits.slowest_seconds);
  curl_easy_setopt(easy, CURLOPT_USERAGENT, "VELDRAN-CrashUploader/1.8");
}

std::string DescribeFailure(CURL* easy, CURLcode code) {
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  return fmt::format("DownloadFile: Download failed. CURLcode: {} ({}){}", static_cast<int>(code),
                     curl_easy_strerror(code),
                     status >= 1 ? fmt::format(", HTTP Status: {}", status) : "");
}

}  // namespace

HttpDownloader::HttpDownloader(platform::Files& files, platform::Clock& clock,
                               console::LogSink& log, console::TransferProgress& progress,
                               const std::atomic<bool>& g_terminateMonitoring,
                               DownloadLimits limits)
    : files_(files),
      clock_(clock),
      log_(log),
      progress_(progress),
      g_terminateMonitoring_(g_terminateMonitoring),
      limits_(limits) {}

bool HttpDownloader::DownloadFile(const std::string& url,
                                  const std::filesystem::path& destination) {
  log_.LogInfo("Attempting download from URL: {}", url);
  log_.LogInfo("Saving downloaded file to: {}", destination);
  const EasyHandle easy(curl_easy_init());
  if (!easy) {
    log_.LogError("DownloadFile: Failed to initialize libcurl.");
    return false;
  }
  auto stream = files_.OpenForWriting(destination);
  if (!stream) {
    log_.LogError(
        "DownloadFile: Failed to open destination file for writing: {}. Error: {} (Code: {})",
        destination, TextOfErrno(static_cast<int>(stream.error().code.value)), stream.error());
    return false;
  }

  DownloadedFile file(std::move(*stream));
  ProgressReporter reporter(easy.get(), clock_, log_, progress_, g_terminateMonitoring_);
  progress_.Begin("Downloading");
  SetOptions(easy.get(), url, file, reporter, limits_);
  CURLcode code = curl_easy_perform(easy.get());
  if (const int error = file.Close(); error != 0) {
    log_.LogWarn("DownloadFile: Writing to {} failed. Error: {} (Code: {})", destination,
                 TextOfErrno(error), error);
    // The last bytes may have failed after libcurl had handed over all of them.
    code = CURLE_WRITE_ERROR;
  }

  if (code == CURLE_OK) {
    log_.LogInfo("DownloadFile: Download completed successfully.");
  } else {
    log_.LogError(DescribeFailure(easy.get(), code));
    RemoveIncompleteFile(destination);
  }
  progress_.Reset();
  return code == CURLE_OK;
}

void HttpDownloader::RemoveIncompleteFile(const std::filesystem::path& destination) {
  try {
    // If nobody can say whether it exists, it may well be there.
    if (!files_.Exists(destination).value_or(true)) return;
    const auto removed = files_.Remove(destination);
    if (!removed) {
      log_.LogWarn("Failed to remove incomplete download file: {}. Error: {}", destination,
                   removed.error());
    } else if (*removed) {
      log_.LogInfo("Removed incomplete download file: {}", destination);
    }
  } catch (const std::exception& problem) {
    log_.LogWarn("Exception while removing incomplete download file '{}': {}", destination,
                 problem.what());
  }
}

}  // namespace vosk::net
