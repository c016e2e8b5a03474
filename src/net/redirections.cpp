#include "net/redirections.h"

#include "text/utf.h"

namespace vosk::net {

bool IsEncrypted(std::string_view url) {
  return text::ToLowerAscii(url.substr(0, url.find(':'))) == "https";
}

const char* AllowedProtocols(std::string_view url) {
  return IsEncrypted(url) ? "https" : "http,https";
}

void FollowRedirections(CURL* easy, std::string_view url) {
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMostRedirections);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, AllowedProtocols(url));
  curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, AllowedProtocols(url));
}

}  // namespace vosk::net
