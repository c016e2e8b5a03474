#include "files/fixed_path.h"

#include <algorithm>

namespace vosk::files {
namespace {

using Path = std::filesystem::path;

using Text = Path::string_type;

bool IsSeparator(Path::value_type unit) {
  return unit == '/' || unit == '\\';
}

// "X:\" at the start; except on Windows that is no root to std::filesystem.
bool StartsAtDriveRoot(const Text& text) {
  if (text.size() < 3 || text[1] != ':' || !IsSeparator(text[2])) return false;
  return (text[0] >= 'A' && text[0] <= 'Z') || (text[0] >= 'a' && text[0] <= 'z');
}

std::size_t EndOfName(const Text& text, std::size_t begin) {
  const auto at = text.begin() + static_cast<std::ptrdiff_t>(begin);
  return static_cast<std::size_t>(std::find_if(at, text.end(), IsSeparator) - text.begin());
}

// How much of "\\server\share\..." is the share, 0 without one; std::filesystem knows no such root.
// What is called "." or "?" is no server but stands for devices.
std::size_t LengthOfShare(const Text& text) {
  if (text.size() < 2 || !IsSeparator(text[0]) || !IsSeparator(text[1])) return 0;
  const std::size_t server_end = EndOfName(text, 2);
  const bool device = server_end == 3 && (text[2] == '.' || text[2] == '?');
  if (server_end == 2 || server_end == text.size() || device) return 0;
  const std::size_t share_end = EndOfName(text, server_end + 1);
  return share_end == server_end + 1 ? 0 : share_end;
}

}  // namespace

bool IsFixedPath(const Path& path) {
  const Text& text = path.native();
  const bool rooted = path.is_absolute() || StartsAtDriveRoot(text) || LengthOfShare(text) != 0;
  if (!rooted) return false;
  return std::ranges::none_of(path, [](const Path& part) { return part == "." || part == ".."; });
}

Path VolumeRoot(const Path& path) {
  const Text& text = path.native();
  if (StartsAtDriveRoot(text)) return text.substr(0, 3);
  if (const std::size_t length = LengthOfShare(text); length != 0) {
    // The system wants the separator, also where the path has none.
    return length < text.size() ? text.substr(0, length + 1) : text + text[0];
  }
  return path.has_root_directory() ? path.root_path() : Path();
}

Path WithoutTrailingSeparator(const Path& path) {
  return path.has_filename() ? path : path.parent_path();
}

}  // namespace vosk::files
