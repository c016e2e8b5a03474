#include "report/upload/tus_offset_query.h"

#include <stdexcept>

#include "report/upload/tus_protocol.h"
#include "text/remote_text.h"

namespace vosk::report {
namespace {

std::int64_t OffsetOfAnswer(const TusResponse& response, console::LogSink& log) {
  const std::string value = FindHeaderValue(response.headers, "Upload-Offset");
  const std::string shown = text::RemoteValue(value);
  try {
    const std::int64_t offset = ParseOffset(value);
    log.LogInfo("TUS HEAD: Found existing Upload-Offset: {}", offset);
    return offset;
  } catch (const std::invalid_argument& problem) {
    log.LogError("TUS HEAD: Invalid argument parsing Upload-Offset '{}': {}", shown,
                 problem.what());
  } catch (const std::out_of_range& problem) {
    log.LogError("TUS HEAD: Out of range parsing Upload-Offset '{}': {}", shown, problem.what());
  } catch (const std::exception& problem) {
    log.LogError("TUS HEAD: Exception parsing Upload-Offset '{}': {}", shown, problem.what());
  }
  return -1;
}

}  // namespace

std::int64_t GetTusUploadOffset(CURL* handle, const std::string& upload_url, TusResponse& response,
                                console::LogSink& log) {
  log.LogInfo("TUS: Sending HEAD request to get offset for: {}", text::RemoteValue(upload_url));
  // Headers of an earlier answer would stand for this one's.
  response.ClearBuffers();
  const HeaderList headers(OffsetQueryHeaders());
  SetUrl(handle, upload_url);
  SetOption(handle, CURLOPT_CUSTOMREQUEST, "HEAD");
  SetOption(handle, CURLOPT_NOBODY, 1L);
  SetOption(handle, CURLOPT_HTTPGET, 0L);
  SetOption(handle, CURLOPT_POST, 0L);
  SetOption(handle, CURLOPT_UPLOAD, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, headers.Get());
  CaptureResponse(handle, response);
  const TusAnswer answer = Perform(handle);
  SetOption(handle, CURLOPT_CUSTOMREQUEST, nullptr);
  SetOption(handle, CURLOPT_NOBODY, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, nullptr);

  if (!answer.Transferred()) {
    log.LogError("TUS HEAD request failed. CURLcode: {}", answer.CodeText());
    log.LogError("Response Body (if any): {}", text::RemoteBody(response.body));
    return -1;
  }
  switch (JudgeOffsetAnswer(answer.status, response.headers)) {
    case OffsetVerdict::offset_given:
      return OffsetOfAnswer(response, log);
    case OffsetVerdict::only_length_given:
      log.LogWarn(
          "TUS HEAD: Upload-Offset header missing, but Upload-Length found. Assuming offset is 0.");
      return 0;
    case OffsetVerdict::resource_missing:
      log.LogInfo("TUS HEAD: Resource not found or access denied (HTTP {}). Assuming offset is 0.",
                  answer.status);
      return 0;
    case OffsetVerdict::nothing_given:
      log.LogError(
          "TUS HEAD: Received HTTP {} but required 'Upload-Offset' (or 'Upload-Length') header is "
          "missing.",
          answer.status);
      log.LogError("Headers received:\n{}", text::RemoteHeaders(response.headers));
      return -1;
    case OffsetVerdict::refused:
      break;
  }
  log.LogError("TUS HEAD: Unexpected HTTP status code: {}", answer.status);
  log.LogError("Response Body: {}", text::RemoteBody(response.body));
  log.LogError("Response Headers:\n{}", text::RemoteHeaders(response.headers));
  return -1;
}

}  // namespace vosk::report
