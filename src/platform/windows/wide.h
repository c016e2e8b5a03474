// Windows' spelling of texts and paths.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vosk::platform::windows {

[[nodiscard]] std::wstring ToWide(std::string_view utf8);
[[nodiscard]] std::string FromWide(std::wstring_view wide);

// Returns the path with backslashes and, if it is needed, the prefix that lifts the limit of 260
// characters.
[[nodiscard]] std::wstring SystemPath(const std::filesystem::path& path);

}  // namespace vosk::platform::windows
