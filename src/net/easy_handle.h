#pragma once

#include <curl/curl.h>

#include <memory>

namespace vosk::net {

struct EasyCleanup {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

// Owns one transfer of libcurl.
using EasyHandle = std::unique_ptr<CURL, EasyCleanup>;

}  // namespace vosk::net
