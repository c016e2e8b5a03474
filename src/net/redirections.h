// How far a request may be sent elsewhere.
#pragma once

#include <curl/curl.h>

#include <string_view>

namespace vosk::net {

// Some versions of libcurl follow a circle of redirections for ever.
inline constexpr long kMostRedirections = 30;

// Whether a request for the URL is encrypted.
[[nodiscard]] bool IsEncrypted(std::string_view url);

// The protocols that a request for the URL and its redirections may use, as libcurl lists them:
// from encryption there is no way back.
[[nodiscard]] const char* AllowedProtocols(std::string_view url);

// Makes the handle follow redirections of a request for the URL within these bounds.
void FollowRedirections(CURL* easy, std::string_view url);

}  // namespace vosk::net
