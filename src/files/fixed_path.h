// Absolute paths without "." or "..". The answers are the same on every machine: the root of a
// drive or of a share counts as one on the machine where the portable code is tested, too.
#pragma once

#include <filesystem>

namespace vosk::files {

// Returns whether the path starts at the root of a drive or share and contains neither "." nor
// "..".
[[nodiscard]] bool IsFixedPath(const std::filesystem::path& path);

// Returns the drive ("C:\") or share ("\\server\share\") with its root separator; empty for a path
// without a root directory.
[[nodiscard]] std::filesystem::path VolumeRoot(const std::filesystem::path& path);

// Drops the empty last element of "a/b/": after a link, it would mean the link's target.
[[nodiscard]] std::filesystem::path WithoutTrailingSeparator(const std::filesystem::path& path);

}  // namespace vosk::files
