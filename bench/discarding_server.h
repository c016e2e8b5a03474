// A TUS server on loopback that takes every upload and keeps none of its bytes. Runs in a process
// of its own, so that neither its time nor its memory count.
#pragma once

#include <sys/types.h>

#include <string>

namespace vosk::bench {

class DiscardingServer {
 public:
  DiscardingServer();
  ~DiscardingServer();
  DiscardingServer(const DiscardingServer&) = delete;
  DiscardingServer& operator=(const DiscardingServer&) = delete;

  // Returns the server's creation endpoint.
  [[nodiscard]] const std::string& Url() const { return url_; }

 private:
  std::string url_;
  pid_t pid_ = -1;
};

}  // namespace vosk::bench
