// The installed Core's version, as the Core itself writes it down.
#pragma once

#include <filesystem>
#include <string>

#include "platform/files.h"

namespace vosk::install {

// The trimmed first line of "CoreVersion.txt" in the Core's stats directory; empty where the file
// is missing, unreadable or blank.
[[nodiscard]] std::string ReadCoreVersionFile(platform::Files& files,
                                              const std::filesystem::path& stats_directory);

}  // namespace vosk::install
