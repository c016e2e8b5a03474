#include "report/upload/tus_upload_run.h"

#include <fmt/format.h>

#include <chrono>

#include "net/redirections.h"
#include "report/upload/tus_offset_query.h"
#include "report/upload/tus_protocol.h"
#include "text/remote_text.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

using namespace std::chrono_literals;

// libcurl's own 64 KiB cost a fifth of the speed that a fast server allows.
constexpr long kUploadBufferBytes = 524'288;
constexpr std::chrono::milliseconds kRetryPause = 3000ms;
// How many answers may leave the offset as it was, or set it back, before the server counts as
// broken.
constexpr int kMaxFruitlessAnswers = 100;

void SetConnectionOptions(CURL* handle) {
  SetOption(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  SetOption(handle, CURLOPT_SSL_VERIFYHOST, 2L);
  SetOption(handle, CURLOPT_TIMEOUT, 300L);
  SetOption(handle, CURLOPT_CONNECTTIMEOUT, 30L);
  SetOption(handle, CURLOPT_TCP_KEEPALIVE, 1L);
  SetOption(handle, CURLOPT_TCP_KEEPIDLE, 60L);
  SetOption(handle, CURLOPT_TCP_KEEPINTVL, 60L);
  SetOption(handle, CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferBytes);
}

}  // namespace

TusUploadRun::TusUploadRun(const std::string& endpoint, const std::filesystem::path& file,
                           platform::Files& files, platform::Clock& clock, console::LogSink& log,
                           console::TransferProgress& progress,
                           const Uploader::Interrupt& interrupt)
    : endpoint_(endpoint),
      file_(file),
      files_(files),
      clock_(clock),
      log_(log),
      progress_(progress),
      interrupt_(interrupt) {}

bool TusUploadRun::Run() {
  log_.LogInfo("Starting TUS upload for: {}", file_);
  if (!Measure() || !OpenHandle() || !CreateResource()) return false;

  offset_ = GetTusUploadOffset(curl_.get(), url_, response_, log_);
  if (offset_ < 0) {
    log_.LogError("Failed to determine initial upload offset via HEAD request.");
    return false;
  }
  if (offset_ >= file_size_) {
    log_.LogInfo("Server offset ({}) indicates upload is already complete (File size: {}).",
                 offset_, file_size_);
    DeleteLocal("Deleted local file that was already uploaded: {}",
                "Failed to delete local file that was already uploaded: {}",
                "Exception while deleting already uploaded file '{}': {}");
    return true;
  }
  if (!SendFile()) return false;
  if (offset_ < file_size_) {
    log_.LogError(
        "Upload loop finished, but final offset ({}) is less than file size ({}). Upload "
        "incomplete.",
        offset_, file_size_);
    return false;
  }
  log_.LogInfo("TUS Upload successfully completed for: {}", file_);
  DeleteLocal("Deleted local file after successful upload: {}",
              "Failed to delete local file after successful upload: {}",
              "Exception occurred while deleting local file '{}' post-upload: {}");
  return true;
}

bool TusUploadRun::Measure() {
  const auto exists = files_.Exists(file_);
  if (!exists) {
    log_.LogError("Invalid file path '{}': {}", file_, exists.error());
    return false;
  }
  if (!*exists) {
    log_.LogError("File does not exist for upload: {}", file_);
    return false;
  }
  const auto size = files_.SizeOf(file_);
  if (!size) {
    log_.LogError("Failed to get file size for '{}': {}", file_, size.error());
    return false;
  }
  file_size_ = static_cast<std::int64_t>(*size);
  if (file_size_ >= 1) return true;

  log_.LogWarn("Skipping upload of zero-byte or invalid size file: {} (Size: {})", file_,
               file_size_);
  DeleteLocal("Deleted zero-byte file: {}", "Failed to delete zero-byte file: {}",
              "Exception while deleting zero-byte file '{}': {}");
  return false;
}

bool TusUploadRun::OpenHandle() {
  curl_.reset(curl_easy_init());
  if (curl_ == nullptr) {
    log_.LogError("Failed to initialize CURL handle.");
    return false;
  }
  SetConnectionOptions(curl_.get());
  if (interrupt_) {
    progress_context_.interrupt = &interrupt_;
    WatchProgress();
  }
  return true;
}

bool TusUploadRun::CreateResource() {
  log_.LogInfo("TUS Step 1: Sending POST to create upload resource...");
  CURL* const handle = curl_.get();
  const std::string metadata =
      UploadMetadata(text::PathToUtf8(file_.filename()), text::PathToUtf8(file_.extension()));
  const HeaderList headers(CreationHeaders(file_size_, metadata));
  SetUrl(handle, endpoint_);
  SetOption(handle, CURLOPT_POST, 1L);
  SetOption(handle, CURLOPT_POSTFIELDSIZE, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, headers.Get());
  CaptureResponse(handle, response_);
  const TusAnswer answer = Perform(handle);
  SetOption(handle, CURLOPT_POST, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, nullptr);

  if (!answer.Transferred() || answer.status != 201) {
    log_.LogError("TUS POST request failed. CURLcode: {}, HTTP Status: {}", answer.CodeText(),
                  answer.status);
    log_.LogError("Response Body: {}", text::RemoteBody(response_.body));
    log_.LogError("Response Headers:\n{}", text::RemoteHeaders(response_.headers));
    return false;
  }
  return TakeLocation();
}

bool TusUploadRun::TakeLocation() {
  url_ = FindHeaderValue(response_.headers, "Location");
  if (url_.empty()) {
    log_.LogError(
        "TUS POST succeeded (HTTP 201), but 'Location' header was missing in the response.");
    log_.LogError("Response Headers:\n{}", text::RemoteHeaders(response_.headers));
    return false;
  }
  if (!url_.starts_with("http")) {
    auto resolved = ResolveLocation(endpoint_, url_);
    if (!resolved) {
      log_.LogError("Failed to create CURLU handle to resolve relative Location URL.");
      return false;
    }
    url_ = std::move(*resolved);
  }
  log_.LogInfo("TUS Step 1: Resource created. Upload URL: {}", text::RemoteValue(url_));
  if (net::IsEncrypted(endpoint_) && !net::IsEncrypted(url_)) {
    log_.LogWarn(
        "TUS: The report will be sent without encryption: the server gave an http address.");
  }
  return true;
}

bool TusUploadRun::SendFile() {
  progress_context_ = {file_size_, &offset_, &progress_, &pulse_, progress_context_.interrupt};
  // The display still shows where packing ended.
  progress_context_.Show(0);
  progress_.SetLabel("Uploading");
  log_.RedrawStatusBar();
  log_.LogInfo("TUS Step 3: Starting chunked PATCH uploads from offset {}...", offset_);
  auto stream = files_.OpenForReading(file_);
  if (!stream) {
    log_.LogError("Failed to open file for reading: {}", file_);
    return false;
  }
  response_.stream = std::move(*stream);
  StartSending();
  while (offset_ < file_size_) {
    if (IsBrokenOff() || !SendChunk()) return false;
    log_.RedrawStatusBar();
    log_.LogProgress(fmt::format("Upload Progress: {} / {} bytes ({:.1f}%)", offset_, file_size_,
                                 Percentage(offset_, file_size_)));
  }
  StopSending();
  response_.stream.reset();
  return true;
}

void TusUploadRun::StartSending() {
  CURL* const handle = curl_.get();
  SetOption(handle, CURLOPT_READFUNCTION, &read_callback);
  SetOption(handle, CURLOPT_READDATA, &response_);
  SetOption(handle, CURLOPT_UPLOAD, 1L);
  SetOption(handle, CURLOPT_CUSTOMREQUEST, "PATCH");
  WatchProgress();
}

void TusUploadRun::WatchProgress() {
  SetOption(curl_.get(), CURLOPT_NOPROGRESS, 0L);
  SetOption(curl_.get(), CURLOPT_XFERINFOFUNCTION, &ReportProgress);
  SetOption(curl_.get(), CURLOPT_XFERINFODATA, &progress_context_);
}

void TusUploadRun::StopSending() {
  CURL* const handle = curl_.get();
  SetOption(handle, CURLOPT_UPLOAD, 0L);
  SetOption(handle, CURLOPT_READFUNCTION, nullptr);
  SetOption(handle, CURLOPT_READDATA, nullptr);
  SetOption(handle, CURLOPT_CUSTOMREQUEST, nullptr);
  SetOption(handle, CURLOPT_INFILESIZE_LARGE, curl_off_t{-1});
}

bool TusUploadRun::SendChunk() {
  CURL* const handle = curl_.get();
  const std::int64_t chunk_start = offset_;
  const std::int64_t chunk_length = ChunkLength(offset_, file_size_);
  const HeaderList headers(ChunkHeaders(offset_));
  attempt_ = 0;
  // If the server advanced during a failed attempt, a fresh chunk begins.
  while (offset_ == chunk_start) {
    if (!SeekToOffset()) return false;
    log_.LogInfo("PATCH Attempt {}/{}: Offset={}, ChunkSize={}", attempt_ + 1, kMaxAttempts,
                 offset_, chunk_length);
    response_.bytesReadForChunk = 0;
    response_.chunkLength = chunk_length;
    response_.ClearBuffers();
    // Method and upload mode stay as the previous request left them: after an offset query, this is
    // a plain request without a body.
    SetOption(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(chunk_length));
    SetUrl(handle, url_);
    SetOption(handle, CURLOPT_HTTPHEADER, headers.Get());
    CaptureResponse(handle, response_);
    const TusAnswer answer = Perform(handle);
    const auto verdict = JudgeChunk(answer.Transferred(), answer.status, attempt_ + 1);
    if (verdict == ChunkVerdict::accepted) return AcceptChunk();
    if (!MayRetry(answer)) return false;
  }
  return true;
}

bool TusUploadRun::SeekToOffset() {
  std::istream& stream = *response_.stream;
  stream.clear();
  if (stream.seekg(offset_)) return true;
  log_.LogError("Failed to seek to offset {} in file '{}' before attempt {}", offset_, file_,
                attempt_ + 1);
  return false;
}

bool TusUploadRun::AcceptChunk() {
  const std::string value = FindHeaderValue(response_.headers, "Upload-Offset");
  if (value.empty()) {
    log_.LogError(
        "TUS PATCH succeeded (HTTP 204), but required 'Upload-Offset' header is missing in "
        "response. Aborting.");
    return false;
  }
  std::int64_t server_offset = 0;
  try {
    server_offset = ParseOffset(value);
  } catch (const std::exception& problem) {
    log_.LogError(
        "Failed to parse 'Upload-Offset' header ('{}') after successful PATCH: {}. Aborting.",
        text::RemoteValue(value), problem.what());
    return false;
  }
  LogOffsetOfAnswer(server_offset);
  if (server_offset <= offset_ && ++fruitless_answers_ >= kMaxFruitlessAnswers) {
    log_.LogError("Server offset did not advance in {} answers to TUS PATCH. Aborting upload.",
                  fruitless_answers_);
    return false;
  }
  offset_ = server_offset;
  return true;
}

void TusUploadRun::LogOffsetOfAnswer(std::int64_t server_offset) {
  const std::int64_t expected = offset_ + response_.bytesReadForChunk;
  if (server_offset == expected) {
    log_.LogInfo("Server offset confirmed: {}", server_offset);
    return;
  }
  curl_off_t sent = 0;
  curl_easy_getinfo(curl_.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
  log_.LogWarn(
      "Server offset mismatch after PATCH! Expected: {}, Server returned: {}. "
      "Trusting server offset.",
      expected, server_offset);
  log_.LogWarn(" -> Bytes read by callback for chunk: {}, Bytes reported sent by CURL: {}",
               response_.bytesReadForChunk, sent);
}

bool TusUploadRun::MayRetry(const TusAnswer& answer) {
  attempt_ += 1;
  log_.LogError("TUS PATCH failed (Attempt {}/{}). CURLcode: {}, HTTP Status: {}", attempt_,
                kMaxAttempts, answer.CodeText(), answer.status);
  if (!response_.body.empty()) {
    log_.LogError("Response Body: {}", text::RemoteBody(response_.body));
  }
  if (IsBrokenOff()) return false;
  const auto verdict = JudgeChunk(answer.Transferred(), answer.status, attempt_);
  if (verdict == ChunkVerdict::attempts_used_up) {
    log_.LogError("Maximum TUS PATCH retries reached. Aborting upload.");
    return false;
  }
  if (verdict == ChunkVerdict::refused) {
    log_.LogError("Non-retriable HTTP error ({}) received during TUS PATCH. Aborting upload.",
                  answer.status);
    return false;
  }
  return AgreeOnOffset();
}

bool TusUploadRun::AgreeOnOffset() {
  log_.LogInfo("Checking server offset before retry...");
  const std::int64_t server_offset = GetTusUploadOffset(curl_.get(), url_, response_, log_);
  if (server_offset < 0) {
    log_.LogError("Failed to get server offset before retry. Aborting.");
    return false;
  }
  if (server_offset > offset_) {
    log_.LogInfo(
        "Server offset advanced to {} during failed attempt. Updating local offset and "
        "continuing.",
        server_offset);
    offset_ = server_offset;
    return true;
  }
  if (server_offset < offset_) {
    log_.LogError("Server offset {} is LESS than current local offset {}. Aborting.", server_offset,
                  offset_);
    return false;
  }
  log_.LogInfo("Retrying chunk in {} ms...", kRetryPause.count());
  clock_.SleepFor(kRetryPause);
  return true;
}

void TusUploadRun::DeleteLocal(const char* deleted, const char* failed, const char* exception) {
  const auto log_exception = [&](const std::string& reason) {
    log_.LogWarn(fmt::runtime(exception), file_, reason);
  };
  try {
    const auto exists = files_.Exists(file_);
    if (!exists) return log_exception(exists.error().text);
    if (!*exists) return;
    const auto removed = files_.Remove(file_);
    if (!removed) return log_exception(removed.error().text);
    if (*removed) {
      log_.LogInfo(fmt::runtime(deleted), file_);
    } else {
      log_.LogWarn(fmt::runtime(failed), file_);
    }
  } catch (const std::exception& problem) {
    log_exception(problem.what());
  }
}

}  // namespace vosk::report
