// Text as the console shows it: without escape sequences, measured in columns.
#pragma once

#include <string>
#include <string_view>

namespace vosk::console {

// Returns the text without escape sequences and control characters. Tabs and line ends become
// blanks, malformed UTF-8 becomes U+FFFD.
[[nodiscard]] std::string PlainText(std::string_view text);

// Returns how many columns plain text takes: two for East Asian wide characters, none for combining
// marks.
[[nodiscard]] int DisplayWidth(std::string_view text);

// Returns the longest beginning of plain text that fits into that many columns.
[[nodiscard]] std::string_view ClipToWidth(std::string_view text, int columns);

}  // namespace vosk::console
