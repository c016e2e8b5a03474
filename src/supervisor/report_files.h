// Names and moves of the files that reports are made of.
#pragma once

#include <filesystem>
#include <string_view>

#include "platform/files.h"

namespace vosk::supervisor {

// The host information file that belongs to a dump, beside it.
[[nodiscard]] std::filesystem::path HostInfoPathFor(const std::filesystem::path& dump);

[[nodiscard]] std::filesystem::path WithSuffix(const std::filesystem::path& path,
                                               std::string_view suffix);

// Renames over whatever holds the new name.
platform::Result<> ReplaceFile(platform::Files& files, const std::filesystem::path& from,
                               const std::filesystem::path& to);

}  // namespace vosk::supervisor
