// How reports and the entries inside them are named. Text is UTF-8; entry names use forward
// slashes.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vosk::report {

// Returns the path of the zip beside the dump: stem, computer name and tag ("CRASH", "LIVE_FD"...),
// joined by underscores.
[[nodiscard]] std::filesystem::path ReportZipPath(const std::filesystem::path& dump_path,
                                                  std::string_view computer_name,
                                                  std::string_view tag);

// Returns the last component, or "<conv_err>" if it is not valid Unicode.
[[nodiscard]] std::string FileNameText(const std::filesystem::path& path);

// Returns the name of the dump's entry, at the top level.
[[nodiscard]] std::string DumpEntryName(const std::filesystem::path& dump);

// Returns the name of an optional file's entry: at the top level, or below "hostinfo/" for host
// information.
[[nodiscard]] std::string FileEntryName(const std::filesystem::path& file);

// Returns the folder name of an optional directory, without a closing slash.
[[nodiscard]] std::string FolderEntryName(const std::filesystem::path& directory);

// Returns the name of an entry inside an optional directory.
[[nodiscard]] std::string EntryNameInFolder(std::string_view folder,
                                            const std::filesystem::path& relative);

}  // namespace vosk::report
