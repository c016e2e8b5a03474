// Reads texts and numbers from the registry, whatever is stored under their names.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace vosk::report {

inline constexpr platform::ErrorCode kUnsupportedType{1630};

// Returns the text up to its terminator, in UTF-8; an odd byte at the end is dropped. The error is
// kUnsupportedType if the value is not a text.
[[nodiscard]] platform::Result<std::string> DecodeText(const platform::RegistryValue& value);
// The error is kUnsupportedType if the value is not a number or has fewer than four bytes.
[[nodiscard]] platform::Result<std::uint32_t> DecodeNumber(const platform::RegistryValue& value);

[[nodiscard]] platform::Result<std::string> ReadText(platform::Registry& registry,
                                                     const platform::RegistryKey& key,
                                                     const std::string& name);
[[nodiscard]] platform::Result<std::uint32_t> ReadNumber(platform::Registry& registry,
                                                         const platform::RegistryKey& key,
                                                         const std::string& name);

}  // namespace vosk::report
