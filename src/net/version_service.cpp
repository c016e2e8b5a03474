#include "net/version_service.h"

#include <fmt/format.h>

#include <new>

#include "identity.h"
#include "net/easy_handle.h"
#include "net/redirections.h"
#include "net/version_reply.h"
#include "text/remote_text.h"

namespace vosk::net {
namespace {

constexpr long kHttpOk = 200;
// The largest reply that is accepted; a larger one is treated as if memory had run out. The parsed
// document is many times as large, and its parser does not survive a failed allocation.
constexpr std::size_t kLargestBody = std::size_t{4} << 20;
class ResponseBody {
 public:
  explicit ResponseBody(console::LogSink& log) : log_(log) {}

  // Returns 0 if there is no memory left for it.
  std::size_t Append(const char* data, std::size_t size) {
    if (Fits(size)) {
      try {
        text_.append(data, size);
        return size;
      } catch (const std::bad_alloc&) {
        // This is logged below, like a body that was too large from the start.
      }
    }
    log_.LogError("FetchVersion: Memory allocation failed for response body");
    return 0;
  }
  [[nodiscard]] const std::string& Text() const { return text_; }

 private:
  [[nodiscard]] bool Fits(std::size_t size) const { return size <= kLargestBody - text_.size(); }

  console::LogSink& log_;
  std::string text_;
};

std::size_t CollectBody(char* data, std::size_t size, std::size_t count, void* body) noexcept try {
  return static_cast<ResponseBody*>(body)->Append(data, size * count);
} catch (...) {
  // There is not even memory for the line that says so.
  return 0;
}

void SetOptions(CURL* easy, const std::string& url, ResponseBody& body,
                const VersionServicePatience& patience) {
  const std::string user_agent = fmt::format("VELDRAN-VOSK/{}", identity::kVersion);
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, CollectBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
  FollowRedirections(easy, url);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT, patience.seconds_in_all);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, patience.connect_seconds);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(easy, CURLOPT_USERAGENT, user_agent.c_str());
  // The body of an error reply is logged, too.
  curl_easy_setopt(easy, CURLOPT_FAILONERROR, 0L);
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
}

}  // namespace

HttpVersionService::HttpVersionService(std::string url, console::LogSink& log,
                                       VersionServicePatience patience)
    : url_(std::move(url)), log_(log), patience_(patience) {}

std::string HttpVersionService::FetchVersion() {
  log_.LogInfo("Checking for latest version from API: {}", url_);
  const EasyHandle easy(curl_easy_init());
  if (!easy) {
    log_.LogError("FetchVersion: Failed to initialize libcurl.");
    return {};
  }
  ResponseBody body(log_);
  SetOptions(easy.get(), url_, body, patience_);
  const CURLcode code = curl_easy_perform(easy.get());
  long status = 0;
  curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);

  if (code != CURLE_OK) {
    log_.LogError("FetchVersion: Network request failed. CURLcode: {} ({})", static_cast<int>(code),
                  curl_easy_strerror(code));
    return {};
  }
  if (status != kHttpOk) {
    log_.LogError("FetchVersion: API request failed. HTTP Status: {}", status);
    LogResponseBody(body.Text());
    return {};
  }
  const auto version = ReadVersionReply(body.Text());
  if (!version) {
    for (const std::string& line : version.error()) log_.LogError(line);
    LogResponseBody(body.Text());
    return {};
  }
  log_.LogInfo("FetchVersion: Latest version reported by API: {}", *version);
  return *version;
}

void HttpVersionService::LogResponseBody(const std::string& body) {
  log_.LogError("FetchVersion: Response Body: {}", text::RemoteBody(body));
}

}  // namespace vosk::net
