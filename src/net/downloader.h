#pragma once

#include <filesystem>
#include <string>

namespace vosk::net {

class Downloader {
 public:
  virtual ~Downloader() = default;
  // Returns true if the destination holds the whole answer. Otherwise the reason is logged and no
  // incomplete file is left.
  virtual bool DownloadFile(const std::string& url, const std::filesystem::path& destination) = 0;
};

}  // namespace vosk::net
