// The sending half of an upload: PATCH after PATCH, and what to do when one fails.
#include <fmt/format.h>

#include <chrono>

#include "report/tus_client.h"
#include "report/tus_protocol.h"
#include "report/tus_upload_state.h"

namespace vosk::report {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kRetryPause = 3000ms;
// Answers that leave the offset where it was, or set it back, before the server counts as broken.
constexpr int kMaxFruitlessAnswers = 100;

void StartSending(CURL* handle, TusResponse& response, TusProgressContext& progress) {
  SetOption(handle, CURLOPT_READFUNCTION, &read_callback);
  SetOption(handle, CURLOPT_READDATA, &response);
  SetOption(handle, CURLOPT_UPLOAD, 1L);
  SetOption(handle, CURLOPT_CUSTOMREQUEST, "PATCH");
  SetOption(handle, CURLOPT_NOPROGRESS, 0L);
  SetOption(handle, CURLOPT_XFERINFOFUNCTION, &ReportProgress);
  SetOption(handle, CURLOPT_XFERINFODATA, &progress);
}

void StopSending(CURL* handle) {
  SetOption(handle, CURLOPT_UPLOAD, 0L);
  SetOption(handle, CURLOPT_READFUNCTION, nullptr);
  SetOption(handle, CURLOPT_READDATA, nullptr);
  SetOption(handle, CURLOPT_CUSTOMREQUEST, nullptr);
  SetOption(handle, CURLOPT_INFILESIZE_LARGE, curl_off_t{-1});
}

}  // namespace

bool TusClient::SendFile(Upload& upload) {
  progress_.SetLabel("Uploading");
  log_.RedrawStatusBar();
  log_.LogInfo("TUS Step 3: Starting chunked PATCH uploads from offset {}...", upload.offset);
  auto stream = files_.OpenForReading(upload.file);
  if (!stream) {
    log_.LogError("Failed to open file for reading: {}", upload.file_text);
    return false;
  }
  upload.response.stream = std::move(*stream);
  upload.progress = {upload.file_size, &upload.offset, &progress_};
  StartSending(upload.curl.get(), upload.response, upload.progress);
  while (upload.offset < upload.file_size) {
    if (!SendChunk(upload)) return false;
    log_.RedrawStatusBar();
    log_.LogProgress(fmt::format("Upload Progress: {} / {} bytes ({:.1f}%)", upload.offset,
                                 upload.file_size, Percentage(upload.offset, upload.file_size)));
  }
  StopSending(upload.curl.get());
  upload.response.stream.reset();
  return true;
}

bool TusClient::SendChunk(Upload& upload) {
  CURL* const handle = upload.curl.get();
  const std::int64_t chunk_start = upload.offset;
  const std::int64_t chunk_length = ChunkLength(upload.offset, upload.file_size);
  const HeaderList headers(ChunkHeaders(upload.offset));
  upload.attempt = 0;
  // A server that advanced during a failed attempt starts a fresh chunk.
  while (upload.offset == chunk_start) {
    if (!SeekToOffset(upload)) return false;
    log_.LogInfo("PATCH Attempt {}/{}: Offset={}, ChunkSize={}", upload.attempt + 1, kMaxAttempts,
                 upload.offset, chunk_length);
    upload.response.bytesReadForChunk = 0;
    upload.response.ClearBuffers();
    // Method and upload mode stay as the request before left them: an offset query turns what
    // follows it into a plain request without a body.
    SetOption(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(chunk_length));
    SetOption(handle, CURLOPT_URL, upload.url.c_str());
    SetOption(handle, CURLOPT_HTTPHEADER, headers.Get());
    CaptureResponse(handle, upload.response);
    const Answer answer = Answer::Perform(handle);
    const auto verdict = JudgeChunk(answer.Transferred(), answer.status, upload.attempt + 1);
    if (verdict == ChunkVerdict::accepted) return AcceptChunk(upload);
    if (!MayRetry(upload, answer)) return false;
  }
  return true;
}

bool TusClient::SeekToOffset(Upload& upload) {
  std::istream& stream = *upload.response.stream;
  stream.clear();
  if (stream.seekg(upload.offset)) return true;
  log_.LogError("Failed to seek to offset {} in file '{}' before attempt {}", upload.offset,
                upload.file_text, upload.attempt + 1);
  return false;
}

bool TusClient::AcceptChunk(Upload& upload) {
  const std::string value = FindHeaderValue(upload.response.headers, "Upload-Offset");
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
        value, problem.what());
    return false;
  }
  const std::int64_t expected = upload.offset + upload.response.bytesReadForChunk;
  if (server_offset == expected) {
    log_.LogInfo("Server offset confirmed: {}", server_offset);
  } else {
    curl_off_t sent = 0;
    curl_easy_getinfo(upload.curl.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
    log_.LogWarn(
        "Server offset mismatch after PATCH! Expected: {}, Server returned: {}. "
        "Trusting server offset.",
        expected, server_offset);
    log_.LogWarn(" -> Bytes read by callback for chunk: {}, Bytes reported sent by CURL: {}",
                 upload.response.bytesReadForChunk, sent);
  }
  if (server_offset <= upload.offset && ++upload.fruitless_answers >= kMaxFruitlessAnswers) {
    log_.LogError("Server offset did not advance in {} answers to TUS PATCH. Aborting upload.",
                  upload.fruitless_answers);
    return false;
  }
  upload.offset = server_offset;
  return true;
}

bool TusClient::MayRetry(Upload& upload, const Answer& answer) {
  upload.attempt += 1;
  log_.LogError("TUS PATCH failed (Attempt {}/{}). CURLcode: {}, HTTP Status: {}", upload.attempt,
                kMaxAttempts, answer.CodeText(), answer.status);
  if (!upload.response.body.empty()) {
    log_.LogError("Response Body: {}", upload.response.body);
  }
  const auto verdict = JudgeChunk(answer.Transferred(), answer.status, upload.attempt);
  if (verdict == ChunkVerdict::attempts_used_up) {
    log_.LogError("Maximum TUS PATCH retries reached. Aborting upload.");
    return false;
  }
  if (verdict == ChunkVerdict::refused) {
    log_.LogError("Non-retriable HTTP error ({}) received during TUS PATCH. Aborting upload.",
                  answer.status);
    return false;
  }
  log_.LogInfo("Checking server offset before retry...");
  const std::int64_t server_offset =
      GetTusUploadOffset(upload.curl.get(), upload.url, upload.response);
  if (server_offset < 0) {
    log_.LogError("Failed to get server offset before retry. Aborting.");
    return false;
  }
  if (server_offset > upload.offset) {
    log_.LogInfo(
        "Server offset advanced to {} during failed attempt. Updating local offset and "
        "continuing.",
        server_offset);
    upload.offset = server_offset;
    return true;
  }
  if (server_offset < upload.offset) {
    log_.LogError("Server offset {} is LESS than current local offset {}. Aborting.", server_offset,
                  upload.offset);
    return false;
  }
  log_.LogInfo("Retrying chunk in {} ms...", kRetryPause.count());
  clock_.SleepFor(kRetryPause);
  return true;
}

}  // namespace vosk::report
