#include "report/upload/tus_client.h"

#include "report/upload/tus_offset_query.h"
#include "report/upload/tus_upload_run.h"

namespace vosk::report {
namespace {

// Hides the transfer display, however the upload ends.
class ProgressReset {
 public:
  explicit ProgressReset(console::TransferProgress& progress) : progress_(progress) {}
  ~ProgressReset() { progress_.Reset(); }
  ProgressReset(const ProgressReset&) = delete;
  ProgressReset& operator=(const ProgressReset&) = delete;

 private:
  console::TransferProgress& progress_;
};

}  // namespace

TusClient::TusClient(std::string endpoint, platform::Files& files, platform::Clock& clock,
                     console::LogSink& log, console::TransferProgress& progress)
    : endpoint_(std::move(endpoint)),
      files_(files),
      clock_(clock),
      log_(log),
      progress_(progress) {}

bool TusClient::TusUpload(const std::filesystem::path& file_path, const Interrupt& interrupt) {
  const ProgressReset reset(progress_);
  try {
    return TusUploadRun(endpoint_, file_path, files_, clock_, log_, progress_, interrupt).Run();
  } catch (const std::exception& problem) {
    log_.LogError("Exception during TUS upload of '{}': {}", file_path, problem.what());
  }
  return false;
}

std::int64_t TusClient::GetTusUploadOffset(CURL* handle, const std::string& upload_url,
                                           TusResponse& response) {
  return report::GetTusUploadOffset(handle, upload_url, response, log_);
}

}  // namespace vosk::report
