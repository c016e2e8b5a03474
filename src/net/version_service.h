// The service that knows the latest version of the Core.
#pragma once

#include <string>

#include "console/log.h"

namespace vosk::net {

class VersionService {
 public:
  virtual ~VersionService() = default;
  // Returns the latest version as the service words it; empty on failure, which is logged.
  virtual std::string FetchVersion() = 0;
};

// How long VOSK waits for the service.
struct VersionServicePatience {
  long connect_seconds = 5;
  long seconds_in_all = 15;
};

// Asks over HTTPS and blocks until the answer has come or the time is up.
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
