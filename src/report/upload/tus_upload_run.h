// One upload from its beginning to its end, over one handle of libcurl.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "console/bar_pulse.h"
#include "console/log.h"
#include "console/transfer_progress.h"
#include "net/easy_handle.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "report/upload/tus_transfer.h"

namespace vosk::report {

class TusUploadRun {
 public:
  // All references outlive the run. `endpoint` is as in TusClient.
  TusUploadRun(const std::string& endpoint, const std::filesystem::path& file,
               platform::Files& files, platform::Clock& clock, console::LogSink& log,
               console::TransferProgress& progress, const Uploader::Interrupt& interrupt);
  // libcurl points into the run.
  TusUploadRun(const TusUploadRun&) = delete;
  TusUploadRun& operator=(const TusUploadRun&) = delete;

  // Goes through all steps, once. Returns true if the server holds the whole file, which is then
  // deleted here; otherwise the reason is logged. Throws what the standard library throws.
  [[nodiscard]] bool Run();

 private:
  [[nodiscard]] bool Measure();
  [[nodiscard]] bool OpenHandle();
  [[nodiscard]] bool CreateResource();
  [[nodiscard]] bool TakeLocation();
  [[nodiscard]] bool SendFile();
  void WatchProgress();
  [[nodiscard]] bool IsBrokenOff() const { return interrupt_ && interrupt_(); }
  void StartSending();
  void StopSending();
  [[nodiscard]] bool SendChunk();
  [[nodiscard]] bool SeekToOffset();
  [[nodiscard]] bool AcceptChunk();
  void LogOffsetOfAnswer(std::int64_t server_offset);
  [[nodiscard]] bool MayRetry(const TusAnswer& answer);
  // Goes on from the server's offset; pauses first if that is the local one. Returns false if it is
  // unknown or smaller.
  [[nodiscard]] bool AgreeOnOffset();
  // The texts are format strings for the path, the last one for the path and the reason.
  void DeleteLocal(const char* deleted, const char* failed, const char* exception);

  const std::string& endpoint_;
  const std::filesystem::path& file_;
  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
  const Uploader::Interrupt& interrupt_;

  std::int64_t file_size_ = 0;
  std::string url_;
  std::int64_t offset_ = 0;  // what the server holds, as far as we know
  int attempt_ = 0;          // failed attempts for this chunk
  int fruitless_answers_ = 0;
  TusResponse response_;
  console::BarPulse pulse_{clock_, log_};
  TusProgressContext progress_context_;
  // This is last, so that the handle goes before anything that it points to.
  net::EasyHandle curl_;
};

}  // namespace vosk::report
