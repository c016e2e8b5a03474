#pragma once

#include <string>
#include <tl/expected.hpp>
#include <vector>

namespace vosk::net {

// Returns the version in a reply of the version service, unchanged. If the reply cannot be used,
// the error holds the lines to log.
[[nodiscard]] tl::expected<std::string, std::vector<std::string>> ReadVersionReply(
    const std::string& body);

}  // namespace vosk::net
