// Lets format texts take paths and errors of the system, besides fmt's own arguments.
#pragma once

#include <fmt/core.h>

#include <filesystem>

#include "platform/types.h"
#include "text/utf.h"

// Writes the path as UTF-8, or a marker if it cannot be converted.
template <>
struct fmt::formatter<std::filesystem::path> : fmt::formatter<fmt::string_view> {
  template <typename Context>
  auto format(const std::filesystem::path& path, Context& context) const {
    return formatter<fmt::string_view>::format(vosk::text::PathToUtf8(path), context);
  }
};

// Writes the number, in any format of a number.
template <>
struct fmt::formatter<vosk::platform::ErrorCode> : fmt::formatter<std::uint32_t> {
  template <typename Context>
  auto format(vosk::platform::ErrorCode code, Context& context) const {
    return formatter<std::uint32_t>::format(code.value, context);
  }
};

// Writes the system's words if there are any, otherwise the number.
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
