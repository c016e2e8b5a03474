// Reads texts and numbers out of the registry, whatever was stored under their names.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace vosk::report {

inline constexpr platform::ErrorCode kUnsupportedType{1630};

// The text up to its terminator, in UTF-8; an odd byte at the end is dropped. Values of another
// type than text are kUnsupportedType.
[[nodiscard]] platform::Result<std::string> DecodeText(const platform::RegistryValue& value);
// Values of another type or with fewer than four bytes are kUnsupportedType.
[[nodiscard]] platform::Result<std::uint32_t> DecodeNumber(const platform::RegistryValue& value);

[[nodiscard]] platform::Result<std::string> ReadText(platform::Registry& registry,
                                                     const platform::RegistryKey& key,
                                                     const std::string& name);
[[nodiscard]] platform::Result<std::uint32_t> ReadNumber(platform::Registry& registry,
                                                         const platform::RegistryKey& key,
                                                         const std::string& name);

}  // namespace vosk::report
