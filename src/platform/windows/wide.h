// Windows' spelling of texts and paths.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vosk::platform::windows {

[[nodiscard]] std::wstring ToWide(std::string_view utf8);
[[nodiscard]] std::string FromWide(std::wstring_view wide);

// The path with backslashes, and with the prefix that lifts the limit of 260 characters where it is
// needed.
[[nodiscard]] std::wstring SystemPath(const std::filesystem::path& path);

}  // namespace vosk::platform::windows
