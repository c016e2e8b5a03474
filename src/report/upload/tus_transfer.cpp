#include "report/upload/tus_transfer.h"

#include <fmt/format.h>

#include <algorithm>

#include "net/redirections.h"
#include "report/upload/tus_protocol.h"

namespace vosk::report {
namespace {

constexpr std::size_t kMaxHeaderBytes = 1'048'576;
constexpr std::size_t kMaxBodyBytes = 10'485'760;
constexpr double kMaxRunningPercentage = 99.9;

// Any count but the one that was offered makes libcurl give up the transfer.
std::size_t AppendWithin(std::size_t cap, std::string* target, const char* data,
                         std::size_t bytes) noexcept try {
  if (bytes == 0 || target == nullptr || bytes > cap - target->size()) return 0;
  target->append(data, bytes);
  return bytes;
} catch (...) {
  return 0;
}

}  // namespace

HeaderList::HeaderList(const std::vector<std::string>& lines)
    : list_(nullptr, &curl_slist_free_all) {
  for (const std::string& line : lines) {
    curl_slist* longer = curl_slist_append(list_.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    (void)list_.release();
    list_.reset(longer);
  }
}

std::string TusAnswer::CodeText() const {
  return fmt::format("{} ({})", static_cast<int>(code), curl_easy_strerror(code));
}

void SetUrl(CURL* handle, const std::string& url) {
  SetOption(handle, CURLOPT_URL, url.c_str());
  net::FollowRedirections(handle, url);
}

TusAnswer Perform(CURL* handle) {
  TusAnswer answer;
  answer.code = curl_easy_perform(handle);
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer.status);
  return answer;
}

void CaptureResponse(CURL* handle, TusResponse& response) {
  SetOption(handle, CURLOPT_HEADERFUNCTION, &AppendHeader);
  SetOption(handle, CURLOPT_HEADERDATA, &response);
  SetOption(handle, CURLOPT_WRITEFUNCTION, &AppendBody);
  SetOption(handle, CURLOPT_WRITEDATA, &response);
}

std::size_t AppendHeader(char* data, std::size_t size, std::size_t count, void* response) noexcept {
  auto* target = static_cast<TusResponse*>(response);
  return AppendWithin(kMaxHeaderBytes, target ? &target->headers : nullptr, data, size * count);
}

std::size_t AppendBody(char* data, std::size_t size, std::size_t count, void* response) noexcept {
  auto* target = static_cast<TusResponse*>(response);
  return AppendWithin(kMaxBodyBytes, target ? &target->body : nullptr, data, size * count);
}

// Looking for the end with a peek before every read would cost a tenth of the speed, so a read that
// meets nothing but the end stands for it. The chunk's end is one as well: libcurl fills up a
// buffer that is nearly empty whatever it announced, and stops only if it has sent exactly that.
std::size_t read_callback(char* buffer, std::size_t size, std::size_t count,
                          void* response) noexcept try {
  constexpr int kEnd = std::istream::traits_type::eof();
  auto* state = static_cast<TusResponse*>(response);
  if (state == nullptr || state->stream == nullptr || !state->stream->good()) return 0;
  std::istream& stream = *state->stream;
  const std::int64_t left = state->chunkLength - state->bytesReadForChunk;
  if (left <= 0) return 0;
  if (size * count == 0) return stream.peek() == kEnd ? 0 : CURL_READFUNC_ABORT;

  stream.read(buffer, std::min(static_cast<std::streamsize>(size * count), left));
  if (!stream.good() && !stream.eof()) {
    // For a debugger only: the log gets the error that libcurl makes of it.
    [[maybe_unused]] const std::string reason = fmt::format(
        "read_callback: File read error occurred. State flags: good={:d}, eof={:d}, fail={:d}, "
        "bad={:d}",
        stream.good(), stream.eof(), stream.fail(), stream.bad());
    return CURL_READFUNC_ABORT;
  }
  const std::streamsize bytes = stream.gcount();
  state->bytesReadForChunk += bytes;
  return static_cast<std::size_t>(bytes);
} catch (...) {
  return CURL_READFUNC_ABORT;
}

void TusProgressContext::Show(std::int64_t uploaded) const {
  progress->Set(std::min(Percentage(*offset + uploaded, totalSize), kMaxRunningPercentage));
}

int ReportProgress(void* context, curl_off_t /*download_total*/, curl_off_t /*downloaded*/,
                   curl_off_t /*upload_total*/, curl_off_t uploaded) noexcept try {
  const auto* target = static_cast<const TusProgressContext*>(context);
  if (target != nullptr && target->interrupt != nullptr && (*target->interrupt)()) return 1;
  if (target != nullptr && target->totalSize > 0 && target->offset != nullptr) {
    target->Show(uploaded);
    if (target->pulse != nullptr) target->pulse->Beat();
  }
  return 0;
} catch (...) {
  // A bar that cannot be drawn is no reason to give up an upload.
  return 0;
}

std::optional<std::string> ResolveLocation(const std::string& endpoint,
                                           const std::string& location) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), &curl_url_cleanup);
  if (url == nullptr) return std::nullopt;
  char* resolved = nullptr;
  curl_url_set(url.get(), CURLUPART_URL, endpoint.c_str(), 0);
  curl_url_set(url.get(), CURLUPART_URL, location.c_str(), CURLU_URLENCODE);
  curl_url_get(url.get(), CURLUPART_URL, &resolved, 0);
  const std::unique_ptr<char, decltype(&curl_free)> owner(resolved, &curl_free);
  return resolved != nullptr ? resolved : location;
}

}  // namespace vosk::report
