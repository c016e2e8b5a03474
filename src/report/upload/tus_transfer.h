// What libcurl needs for a TUS upload: options, header lists, and callbacks with their data.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <istream>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "console/bar_pulse.h"
#include "console/transfer_progress.h"
#include "report/upload/uploader.h"

namespace vosk::report {

// Sets one option. Throws std::bad_alloc if libcurl has no memory to keep it: without it the
// request would be a different one.
template <typename Value>
void SetOption(CURL* handle, CURLoption option, Value value) {
  if (curl_easy_setopt(handle, option, value) == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
}

// Owns a list of request header lines.
class HeaderList {
 public:
  // Throws std::bad_alloc.
  explicit HeaderList(const std::vector<std::string>& lines);
  [[nodiscard]] curl_slist* Get() const { return list_.get(); }

 private:
  std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> list_;
};

// What one upload receives, and the file it sends. Serves every request of that upload.
struct TusResponse {
  std::string headers;  // lines as received, each with its CR LF
  std::string body;
  std::int64_t bytesReadForChunk = 0;
  // No more than this is given away for one attempt.
  std::int64_t chunkLength = std::numeric_limits<std::int64_t>::max();
  std::unique_ptr<std::istream> stream;  // none until the chunks are sent

  void ClearBuffers() {
    headers.clear();
    body.clear();
  }
};

struct TusProgressContext {
  std::int64_t totalSize = 0;
  const std::int64_t* offset = nullptr;
  console::TransferProgress* progress = nullptr;
  console::BarPulse* pulse = nullptr;              // or nobody looks
  const Uploader::Interrupt* interrupt = nullptr;  // or nobody breaks it off

  // Shows the share of the file that the server holds, `uploaded` bytes beyond the offset.
  void Show(std::int64_t uploaded) const;
};

// How one request ended.
struct TusAnswer {
  CURLcode code = CURLE_OK;
  long status = 0;  // 0: none came

  [[nodiscard]] bool Transferred() const { return code == CURLE_OK; }
  [[nodiscard]] std::string CodeText() const;
};

// Where the next request goes, and how far it may be redirected.
void SetUrl(CURL* handle, const std::string& url);

// Sends the request that the handle is set to, and waits for its end.
[[nodiscard]] TusAnswer Perform(CURL* handle);

// Makes the handle collect headers and body in `response`, which outlives the request.
void CaptureResponse(CURL* handle, TusResponse& response);

// Callbacks of libcurl; the last argument is a TusResponse, for ReportProgress a
// TusProgressContext. They never throw.
std::size_t AppendHeader(char* data, std::size_t size, std::size_t count, void* response) noexcept;
std::size_t AppendBody(char* data, std::size_t size, std::size_t count, void* response) noexcept;
std::size_t read_callback(char* buffer, std::size_t size, std::size_t count,
                          void* response) noexcept;
int ReportProgress(void* context, curl_off_t download_total, curl_off_t downloaded,
                   curl_off_t upload_total, curl_off_t uploaded) noexcept;

// Makes a relative upload location absolute against the endpoint; returns it unchanged if that
// fails, and nothing if libcurl has no memory for it.
[[nodiscard]] std::optional<std::string> ResolveLocation(const std::string& endpoint,
                                                         const std::string& location);

}  // namespace vosk::report
