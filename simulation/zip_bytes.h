#pragma once

#include <string>
#include <vector>

namespace vosk::simulation {

struct ZipMember {
  std::string name;
  std::string bytes;
};

// Returns the bytes of a zip with these members.
[[nodiscard]] std::string ZipBytes(const std::vector<ZipMember>& members);

}  // namespace vosk::simulation
