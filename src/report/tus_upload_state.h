// The state of one upload, shared by the files of TusClient alone.
#pragma once

#include <fmt/format.h>

#include "report/tus_client.h"

namespace vosk::report {

struct TusClient::Upload {
  const std::filesystem::path& file;
  std::string file_text;
  std::int64_t file_size = 0;
  TusResponse response = {};
  std::string url = {};
  std::int64_t offset = 0;
  std::int32_t attempt = 0;
  int fruitless_answers = 0;
  TusProgressContext progress = {};
  // Last, so that nothing that the handle points to goes before it.
  EasyHandle curl{nullptr, &curl_easy_cleanup};
};

// How one request ended.
struct TusClient::Answer {
  CURLcode code = CURLE_OK;
  long status = 0;  // 0: none came

  [[nodiscard]] bool Transferred() const { return code == CURLE_OK; }
  [[nodiscard]] std::string CodeText() const {
    return fmt::format("{} ({})", static_cast<int>(code), curl_easy_strerror(code));
  }
  static Answer Perform(CURL* handle) {
    Answer answer;
    answer.code = curl_easy_perform(handle);
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
  }
};

}  // namespace vosk::report
