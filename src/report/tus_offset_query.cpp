// Asking the server how much of an upload it holds.
#include <fmt/format.h>

#include <stdexcept>

#include "report/tus_client.h"
#include "report/tus_protocol.h"
#include "report/tus_upload_state.h"

namespace vosk::report {

std::int64_t TusClient::GetTusUploadOffset(CURL* handle, const std::string& upload_url,
                                           TusResponse& response) {
  log_.LogInfo("TUS: Sending HEAD request to get offset for: {}", upload_url);
  const HeaderList headers(OffsetQueryHeaders());
  SetOption(handle, CURLOPT_URL, upload_url.c_str());
  SetOption(handle, CURLOPT_CUSTOMREQUEST, "HEAD");
  SetOption(handle, CURLOPT_NOBODY, 1L);
  SetOption(handle, CURLOPT_HTTPGET, 0L);
  SetOption(handle, CURLOPT_POST, 0L);
  SetOption(handle, CURLOPT_UPLOAD, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, headers.Get());
  CaptureResponse(handle, response);
  const Answer answer = Answer::Perform(handle);
  SetOption(handle, CURLOPT_CUSTOMREQUEST, nullptr);
  SetOption(handle, CURLOPT_NOBODY, 0L);
  SetOption(handle, CURLOPT_HTTPHEADER, nullptr);

  if (!answer.Transferred()) {
    log_.LogError("TUS HEAD request failed. CURLcode: {}", answer.CodeText());
    log_.LogError("Response Body (if any): {}", response.body);
    return -1;
  }
  switch (JudgeOffsetAnswer(answer.status, response.headers)) {
    case OffsetVerdict::offset_given:
      return OffsetOfAnswer(response);
    case OffsetVerdict::only_length_given:
      log_.LogWarn(
          "TUS HEAD: Upload-Offset header missing, but Upload-Length found. Assuming offset is 0.");
      return 0;
    case OffsetVerdict::resource_missing:
      log_.LogInfo("TUS HEAD: Resource not found or access denied (HTTP {}). Assuming offset is 0.",
                   answer.status);
      return 0;
    case OffsetVerdict::nothing_given:
      log_.LogError(
          "TUS HEAD: Received HTTP {} but required 'Upload-Offset' (or 'Upload-Length') header is "
          "missing.",
          answer.status);
      log_.LogError("Headers received:\n{}", response.headers);
      return -1;
    case OffsetVerdict::refused:
      break;
  }
  log_.LogError("TUS HEAD: Unexpected HTTP status code: {}", answer.status);
  log_.LogError("Response Body: {}", response.body);
  log_.LogError("Response Headers:\n{}", response.headers);
  return -1;
}

std::int64_t TusClient::OffsetOfAnswer(const TusResponse& response) {
  const std::string value = FindHeaderValue(response.headers, "Upload-Offset");
  try {
    const std::int64_t offset = ParseOffset(value);
    log_.LogInfo("TUS HEAD: Found existing Upload-Offset: {}", offset);
    return offset;
  } catch (const std::invalid_argument& problem) {
    log_.LogError("TUS HEAD: Invalid argument parsing Upload-Offset '{}': {}", value,
                  problem.what());
  } catch (const std::out_of_range& problem) {
    log_.LogError("TUS HEAD: Out of range parsing Upload-Offset '{}': {}", value, problem.what());
  } catch (const std::exception& problem) {
    log_.LogError("TUS HEAD: Exception parsing Upload-Offset '{}': {}", value, problem.what());
  }
  return -1;
}

}  // namespace vosk::report
