// Text as the console shows it: without escape sequences, measured in columns.
#pragma once

#include <string>
#include <string_view>

namespace vosk::console {

// The text alone: escape sequences and control characters are gone, tabs and line ends have become
// blanks, malformed UTF-8 has become U+FFFD.
[[nodiscard]] std::string PlainText(std::string_view text);

// The columns that plain text takes: two for East Asian wide characters, none for combining marks.
[[nodiscard]] int DisplayWidth(std::string_view text);

// The longest beginning of plain text that takes no more columns than that.
[[nodiscard]] std::string_view ClipToWidth(std::string_view text, int columns);

}  // namespace vosk::console
