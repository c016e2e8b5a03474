#include "files/tree_removal.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "files/fixed_path.h"
#include "text/formatters.h"

namespace vosk::files {
namespace {

using platform::Error;
using platform::FileType;
using platform::Result;
using Path = std::filesystem::path;

enum class Kind { file, directory, link, unknown };

struct Entry {
  Path path;
  Kind kind = Kind::unknown;
  std::optional<Error> listing_error = {};  // if the directory was not read to its end
};

// Returns whether this is the root of a drive or share, however it is spelled: nobody means to
// remove all of it.
bool IsRoot(const Path& path) {
  return !path.has_filename() || path.native().back() == ':';
}

// Returns the part of `path` below `limit`: empty if both are the same, nothing if `path` is
// elsewhere.
std::optional<Path> PartBelow(const Path& limit, const Path& path) {
  const auto [at_limit, at_path] =
      std::mismatch(limit.begin(), limit.end(), path.begin(), path.end());
  if (at_limit != limit.end()) return std::nullopt;
  Path below;
  for (auto at = at_path; at != path.end(); ++at) below /= *at;
  return below;
}

tl::unexpected<Error> Refused(std::string reason) {
  return tl::unexpected(Error{platform::kInvalidParameter, std::move(reason)});
}

// Fails if the removal would leave the limit.
Result<> CheckLimit(platform::Files& files, const Path& path, const Path& limit) {
  const auto below = PartBelow(limit, path);
  if (!below || IsRoot(path)) {
    return Refused(fmt::format("refused to remove '{}': it does not lie below '{}'", path, limit));
  }
  Path on_the_way = limit;
  for (const Path& element : below->parent_path()) {
    on_the_way /= element;
    const auto link = files.IsLink(on_the_way);
    if (!link && files.Exists(on_the_way) != false) return tl::unexpected(link.error());
    if (link.value_or(false)) {
      return Refused(fmt::format("refused to remove '{}': '{}' is a link", path, on_the_way));
    }
  }
  return {};
}

Kind KindOf(platform::Files& files, const Path& path) {
  const auto link = files.IsLink(path);
  if (!link) return Kind::unknown;
  if (*link) return Kind::link;
  const auto type = files.TypeOf(path);
  if (!type) return Kind::unknown;
  if (*type == FileType::directory) return Kind::directory;
  return *type == FileType::regular ? Kind::file : Kind::unknown;
}

// Adds a directory's entries to the list. The walk is closed again before anything is removed: an
// open one keeps an emptied directory in place.
Result<> List(platform::Files& files, const Path& directory, std::vector<Entry>& entries) {
  auto walk = files.Walk(directory, platform::WalkDepth::direct_entries);
  if (!walk) return tl::unexpected(walk.error());
  while (true) {
    auto entry = (*walk)->Next();
    if (!entry) return tl::unexpected(entry.error());
    if (!*entry) return {};
    entries.push_back({.path = std::move(**entry)});
  }
}

// Returns the path and everything inside; directories come before their entries.
std::vector<Entry> ListTree(platform::Files& files, const Path& path) {
  std::vector<Entry> entries{{.path = path}};
  for (std::size_t at = 0; at < entries.size(); ++at) {
    entries[at].kind = KindOf(files, entries[at].path);
    if (entries[at].kind != Kind::directory) continue;
    const Path directory = entries[at].path;
    if (const auto listed = List(files, directory, entries); !listed) {
      entries[at].listing_error = listed.error();
    }
  }
  return entries;
}

}  // namespace

Result<> RemoveTree(platform::Files& files, const Path& path, const Path& limit) {
  if (!IsFixedPath(path) || !IsFixedPath(limit)) {
    return Refused(
        fmt::format("refused to remove '{}' below '{}': not an absolute path", path, limit));
  }
  const Path root = WithoutTrailingSeparator(path);
  if (auto allowed = CheckLimit(files, root, WithoutTrailingSeparator(limit)); !allowed) {
    return allowed;
  }
  std::vector<Entry> entries = ListTree(files, root);
  std::ranges::reverse(entries);
  std::optional<Error> first_error;
  for (const Entry& entry : entries) {
    const auto removed = files.Remove(entry.path);
    if (removed || first_error) continue;
    first_error = entry.listing_error.value_or(removed.error());
  }
  if (first_error) return tl::unexpected(*first_error);
  return {};
}

std::uint64_t TreeSize(platform::Files& files, const Path& path) {
  std::uint64_t size = 0;
  for (const Entry& entry : ListTree(files, WithoutTrailingSeparator(path))) {
    if (entry.kind == Kind::file) size += files.SizeOf(entry.path).value_or(0);
  }
  return size;
}

}  // namespace vosk::files
