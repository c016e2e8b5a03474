// What a format text may take besides fmt's own arguments: paths and errors of the system.
#pragma once

#include <fmt/core.h>

#include <filesystem>

#include "platform/types.h"
#include "text/utf.h"

// As UTF-8; what cannot be converted leaves a marker.
template <>
struct fmt::formatter<std::filesystem::path> : fmt::formatter<fmt::string_view> {
  template <typename Context>
  auto format(const std::filesystem::path& path, Context& context) const {
    return formatter<fmt::string_view>::format(vosk::text::PathToUtf8(path), context);
  }
};

// The number, in any way in which a number can be written.
template <>
struct fmt::formatter<vosk::platform::ErrorCode> : fmt::formatter<std::uint32_t> {
  template <typename Context>
  auto format(vosk::platform::ErrorCode code, Context& context) const {
    return formatter<std::uint32_t>::format(code.value, context);
  }
};

// The system's words if there are any, else its number.
template <>
struct fmt::formatter<vosk::platform::Error> : fmt::formatter<vosk::platform::ErrorCode> {
  template <typename Context>
  auto format(const vosk::platform::Error& error, Context& context) const {
    if (error.text.empty()) {
      return formatter<vosk::platform::ErrorCode>::format(error.code, context);
    }
    const fmt::string_view words = error.text;
    return std::copy(words.begin(), words.end(), context.out());
  }
};
