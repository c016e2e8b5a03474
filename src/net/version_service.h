// The service that knows the latest version of the Core.
#pragma once

#include <string>

#include "console/log.h"

namespace vosk::net {

class VersionService {
 public:
  virtual ~VersionService() = default;
  // The latest version as the service words it, or nothing; the reason is then in the log.
  virtual std::string FetchVersion() = 0;
};

// Asks over HTTPS; blocks for 15 seconds at most.
class HttpVersionService : public VersionService {
 public:
  HttpVersionService(std::string url, console::LogSink& log);

  std::string FetchVersion() override;

 private:
  void LogResponseBody(const std::string& body);

  std::string url_;
  console::LogSink& log_;
};

}  // namespace vosk::net
