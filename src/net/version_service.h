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

// For how long the service is waited for.
struct VersionServicePatience {
  long connect_seconds = 5;
  long seconds_in_all = 15;
};

// Asks over HTTPS and blocks until the answer is there or its patience ends.
class HttpVersionService : public VersionService {
 public:
  HttpVersionService(std::string url, console::LogSink& log, VersionServicePatience patience = {});

  std::string FetchVersion() override;

 private:
  void LogResponseBody(const std::string& body);

  std::string url_;
  console::LogSink& log_;
  VersionServicePatience patience_;
};

}  // namespace vosk::net
