// How reports and the entries inside them are named. Text is UTF-8; entry names use forward
// slashes.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vosk::report {

// The zip beside the dump: stem, computer name and tag ("CRASH", "LIVE_FD"...), joined by
// underscores.
[[nodiscard]] std::filesystem::path ReportZipPath(const std::filesystem::path& dump_path,
                                                  std::string_view computer_name,
                                                  std::string_view tag);

// The last component, or "<conv_err>" if it is not valid Unicode.
[[nodiscard]] std::string FileNameText(const std::filesystem::path& path);

// The dump's entry, at the top level.
[[nodiscard]] std::string DumpEntryName(const std::filesystem::path& dump);

// The entry of an optional file: at the top level, host information below "hostinfo/".
[[nodiscard]] std::string FileEntryName(const std::filesystem::path& file);

// The folder of an optional directory, without a closing slash.
[[nodiscard]] std::string FolderEntryName(const std::filesystem::path& directory);

// The entry of something inside an optional directory.
[[nodiscard]] std::string EntryNameInFolder(std::string_view folder,
                                            const std::filesystem::path& relative);

}  // namespace vosk::report
