// Paths that say where they lie by themselves. The same answers on every machine: a drive's root is
// one where the portable code is tested as well.
#pragma once

#include <filesystem>

namespace vosk::files {

// From the root of a drive or share, without "." and "..".
[[nodiscard]] bool IsFixedPath(const std::filesystem::path& path);

// The drive (or share) and its root separator; empty for a path without a root directory.
[[nodiscard]] std::filesystem::path VolumeRoot(const std::filesystem::path& path);

// Without the empty last element of "a/b/": behind a link, it would stand for the target.
[[nodiscard]] std::filesystem::path WithoutTrailingSeparator(const std::filesystem::path& path);

}  // namespace vosk::files
