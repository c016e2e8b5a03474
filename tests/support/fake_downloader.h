#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "net/downloader.h"

namespace vosk::support {

// Downloads what the test says, without a server. Like the real one, it leaves no file if it fails.
class FakeDownloader : public net::Downloader {
 public:
  // Puts the answer at the destination, or returns false.
  std::function<bool(const std::string& url, const std::filesystem::path& destination)> fetch;
  std::vector<std::string> urls;

  bool DownloadFile(const std::string& url, const std::filesystem::path& destination) override {
    urls.push_back(url);
    return fetch && fetch(url, destination);
  }
};

}  // namespace vosk::support
