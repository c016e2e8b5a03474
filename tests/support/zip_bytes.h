// Zip archives for what reads them.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vosk::support {

// The bytes of an archive with these members, as (name, bytes), each compressed.
[[nodiscard]] std::string ZipBytes(const std::vector<std::pair<std::string, std::string>>& members);

}  // namespace vosk::support
