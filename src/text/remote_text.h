// Text that comes from elsewhere, made fit for console and log. Control characters become U+FFFD,
// as does what is not UTF-8: escape sequences could wipe the screen, or make the terminal type an
// answer. Tabs stay. Text that is too long is cut, and the number of bytes left out stands behind
// it.
#pragma once

#include <string>
#include <string_view>

namespace vosk::text {

// A value within a line, of which line ends are no part; at most 4 KiB.
[[nodiscard]] std::string RemoteValue(std::string_view text);

// The body of an answer, with its line ends; at most 4 KiB.
[[nodiscard]] std::string RemoteBody(std::string_view text);

// Header lines of an answer, with their line ends; at most 16 KiB.
[[nodiscard]] std::string RemoteHeaders(std::string_view text);

}  // namespace vosk::text
