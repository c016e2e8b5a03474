#pragma once

#include <string>

namespace vosk::net {

class VersionService {
 public:
  virtual ~VersionService() = default;
  // The latest version of the Core as the service words it, or nothing; the reason is then in the
  // log.
  virtual std::string FetchVersion() = 0;
};

}  // namespace vosk::net
