// UTF-16 and UTF-8. Text is UTF-8 everywhere inside VOSK; UTF-16 lives in paths and system calls.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <tl/expected.hpp>

namespace vosk::text {

// The system's number for text that has no counterpart in the other encoding.
inline constexpr std::uint32_t kNoUnicodeTranslation = 1113;

// Converts strictly: the error is kNoUnicodeTranslation for a lone surrogate.
[[nodiscard]] tl::expected<std::string, std::uint32_t> Utf16ToUtf8(std::u16string_view wide);

// Converts leniently: every malformed sequence becomes U+FFFD.
[[nodiscard]] std::u16string Utf8ToUtf16(std::string_view narrow);

// Reads the code point at `at`, which lies within the text, and moves past it. A malformed sequence
// reads as U+FFFD, one byte at a time.
[[nodiscard]] char32_t NextCodePoint(std::string_view text, std::size_t& at);
void AppendUtf8(char32_t code_point, std::string& out);

// Never throws; if the text cannot be converted, it returns a marker with the system's code.
[[nodiscard]] std::string WideToUtf8(std::u16string_view wide);
[[nodiscard]] std::string PathToUtf8(const std::filesystem::path& path);

// Returns the path, or the error if its name is not valid Unicode.
[[nodiscard]] tl::expected<std::string, std::uint32_t> TryPathToUtf8(
    const std::filesystem::path& path);

// Backslashes separate on every machine.
[[nodiscard]] std::filesystem::path PathFromUtf8(std::string_view narrow);

// Lower-cases A to Z and nothing else, as the C runtime's comparisons do in the "C" locale.
[[nodiscard]] std::string ToLowerAscii(std::string_view text);
[[nodiscard]] std::u16string ToLowerAscii(std::u16string_view text);

}  // namespace vosk::text
