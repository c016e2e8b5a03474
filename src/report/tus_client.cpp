#include "report/tus_client.h"

#include <fmt/format.h>

#include "report/tus_protocol.h"
#include "report/tus_upload_state.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

// libcurl's own 64 KiB cost a fifth of the speed that a fast server allows.
constexpr long kUploadBufferBytes = 524'288;
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

void SetConnectionOptions(CURL* handle) {
  SetOption(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  SetOption(handle, CURLOPT_SSL_VERIFYHOST, 2L);
  SetOption(handle, CURLOPT_FOLLOWLOCATION, 1L);
  SetOption(handle, CURLOPT_TIMEOUT, 300L);
  SetOption(handle, CURLOPT_CONNECTTIMEOUT, 30L);
  SetOption(handle, CURLOPT_TCP_KEEPALIVE, 1L);
  SetOption(handle, CURLOPT_TCP_KEEPIDLE, 60L);
  SetOption(handle, CURLOPT_TCP_KEEPINTVL, 60L);
  SetOption(handle, CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferBytes);
}

}  // namespace

TusClient::TusClient(std::string endpoint, platform::Files& files, platform::Clock& clock,
                     console::LogSink& log, console::TransferProgress& progress)
    : endpoint_(std::move(endpoint)),
      files_(files),
      clock_(clock),
      log_(log),
      progress_(progress) {}

bool TusClient::TusUpload(const std::filesystem::path& file_path) {
  const ProgressReset reset(progress_);
  try {
    return Run(file_path);
  } catch (const std::exception& problem) {
    log_.LogError("Exception during TUS upload of '{}': {}", file_path, problem.what());
  }
  return false;
}

bool TusClient::Run(const std::filesystem::path& file_path) {
  Upload upload{.file = file_path, .file_text = text::PathToUtf8(file_path)};
  log_.LogInfo("Starting TUS upload for: {}", upload.file_text);
  if (!Measure(upload)) return false;

  upload.curl.reset(curl_easy_init());
  if (upload.curl == nullptr) {
    log_.LogError("Failed to initialize CURL handle.");
    return false;
  }
  SetConnectionOptions(upload.curl.get());
  if (!CreateResource(upload)) return false;

  upload.offset = GetTusUploadOffset(upload.curl.get(), upload.url, upload.response);
  if (upload.offset < 0) {
    log_.LogError("Failed to determine initial upload offset via HEAD request.");
    return false;
  }
  if (upload.offset >= upload.file_size) {
    log_.LogInfo("Server offset ({}) indicates upload is already complete (File size: {}).",
                 upload.offset, upload.file_size);
    DeleteLocal(upload, "Deleted local file that was already uploaded: {}",
                "Failed to delete local file that was already uploaded: {}",
                "Exception while deleting already uploaded file '{}': {}");
    return true;
  }
  if (!SendFile(upload)) return false;
  if (upload.offset < upload.file_size) {
    log_.LogError(
        "Upload loop finished, but final offset ({}) is less than file size ({}). Upload "
        "incomplete.",
        upload.offset, upload.file_size);
    return false;
  }
  log_.LogInfo("TUS Upload successfully completed for: {}", upload.file_text);
  DeleteLocal(upload, "Deleted local file after successful upload: {}",
              "Failed to delete local file after successful upload: {}",
              "Exception occurred while deleting local file '{}' post-upload: {}");
  return true;
}

bool TusClient::Measure(Upload& upload) {
  const auto exists = files_.Exists(upload.file);
  if (!exists) {
    log_.LogError("Invalid file path '{}': {}", upload.file_text, exists.error());
    return false;
  }
  if (!*exists) {
    log_.LogError("File does not exist for upload: {}", upload.file_text);
    return false;
  }
  const auto size = files_.SizeOf(upload.file);
  if (!size) {
    log_.LogError("Failed to get file size for '{}': {}", upload.file_text, size.error());
    return false;
  }
  upload.file_size = static_cast<std::int64_t>(*size);
  if (upload.file_size >= 1) return true;

  log_.LogWarn("Skipping upload of zero-byte or invalid size file: {} (Size: {})", upload.file_text,
               upload.file_size);
  DeleteLocal(upload, "Deleted zero-byte file: {}", "Failed to delete zero-byte file: {}",
              "Exception while deleting zero-byte file '{}': {}");
  return false;
}

bool TusClient::CreateResource(Upload& upload) {
  log_.LogInfo("TUS Step 1: Sending POST to create upload resource...");
  CURL* const handle = upload.curl.get();
  const std::string metadata = UploadMetadata(text::PathToUtf8(upload.file.filename()),
                                              text::PathToUtf8(upload.file.extension()));
  const HeaderList headers(CreationHeaders(upload.file_size, metadata));
  SetOption(handle, CURLOPT_URL, endpoint_.c_str());
  SetOption(handle, CURLOPT_POST, 1L);
  SetOption(handle, CURLOPT_POSTFIELDSIZE, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, headers.Get());
  CaptureResponse(handle, upload.response);
  const Answer answer = Answer::Perform(handle);
  SetOption(handle, CURLOPT_POST, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, nullptr);

  if (!answer.Transferred() || answer.status != 201) {
    log_.LogError("TUS POST request failed. CURLcode: {}, HTTP Status: {}", answer.CodeText(),
                  answer.status);
    log_.LogError("Response Body: {}", upload.response.body);
    log_.LogError("Response Headers:\n{}", upload.response.headers);
    return false;
  }
  return TakeLocation(upload);
}

bool TusClient::TakeLocation(Upload& upload) {
  upload.url = FindHeaderValue(upload.response.headers, "Location");
  if (upload.url.empty()) {
    log_.LogError(
        "TUS POST succeeded (HTTP 201), but 'Location' header was missing in the response.");
    log_.LogError("Response Headers:\n{}", upload.response.headers);
    return false;
  }
  if (!upload.url.starts_with("http")) {
    auto resolved = ResolveLocation(endpoint_, upload.url);
    if (!resolved) {
      log_.LogError("Failed to create CURLU handle to resolve relative Location URL.");
      return false;
    }
    upload.url = std::move(*resolved);
  }
  log_.LogInfo("TUS Step 1: Resource created. Upload URL: {}", upload.url);
  return true;
}

void TusClient::DeleteLocal(const Upload& upload, const char* deleted, const char* failed,
                            const char* exception) {
  const auto log_exception = [&](const std::string& reason) {
    log_.LogWarn(fmt::format(fmt::runtime(exception), upload.file_text, reason));
  };
  try {
    const auto exists = files_.Exists(upload.file);
    if (!exists) return log_exception(exists.error().text);
    if (!*exists) return;
    const auto removed = files_.Remove(upload.file);
    if (!removed) return log_exception(removed.error().text);
    if (*removed) {
      log_.LogInfo(fmt::format(fmt::runtime(deleted), upload.file_text));
    } else {
      log_.LogWarn(fmt::format(fmt::runtime(failed), upload.file_text));
    }
  } catch (const std::exception& problem) {
    log_exception(problem.what());
  }
}

}  // namespace vosk::report
