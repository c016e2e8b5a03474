#pragma once

#include <string>
#include <tl/expected.hpp>
#include <vector>

namespace vosk::net {

// The version in a reply of the version service, as it stands there but made harmless. The error is
// what the log has to say of a reply that cannot be used, line by line.
[[nodiscard]] tl::expected<std::string, std::vector<std::string>> ReadVersionReply(
    const std::string& body);

}  // namespace vosk::net
