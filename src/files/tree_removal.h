// Removes and measures directories with everything inside. Links (symbolic links, junctions) are
// entries like any other here: they are never followed.
#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/files.h"

namespace vosk::files {

// Removes a file, a link, or a directory with everything inside; a missing path is a success. Both
// paths must be fixed (IsFixedPath), and `path` must be `limit` or below it, not through a link;
// otherwise nothing is touched. Goes on past entries that cannot be removed and returns the first
// of these errors.
platform::Result<> RemoveTree(platform::Files& files, const std::filesystem::path& path,
                              const std::filesystem::path& limit);

// Returns the bytes of the regular files at or below the path; what cannot be read counts as 0.
[[nodiscard]] std::uint64_t TreeSize(platform::Files& files, const std::filesystem::path& path);

}  // namespace vosk::files
