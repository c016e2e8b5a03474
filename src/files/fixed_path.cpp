#include "files/fixed_path.h"

#include <algorithm>

namespace vosk::files {
namespace {

using Path = std::filesystem::path;

// Returns whether "X:\" is at the start; std::filesystem knows that as a root on Windows only.
bool StartsAtDriveRoot(const Path& path) {
  const auto& text = path.native();
  if (text.size() < 3 || text[1] != ':' || (text[2] != '/' && text[2] != '\\')) return false;
  return (text[0] >= 'A' && text[0] <= 'Z') || (text[0] >= 'a' && text[0] <= 'z');
}

}  // namespace

bool IsFixedPath(const Path& path) {
  if (!path.is_absolute() && !StartsAtDriveRoot(path)) return false;
  return std::ranges::none_of(path, [](const Path& part) { return part == "." || part == ".."; });
}

Path VolumeRoot(const Path& path) {
  if (StartsAtDriveRoot(path)) return path.native().substr(0, 3);
  return path.has_root_directory() ? path.root_path() : Path();
}

Path WithoutTrailingSeparator(const Path& path) {
  return path.has_filename() ? path : path.parent_path();
}

}  // namespace vosk::files
