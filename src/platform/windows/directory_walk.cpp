#include "platform/windows/directory_walk.h"

#include <windows.h>

#include <vector>

#include "platform/windows/error_text.h"
#include "platform/windows/unique_handle.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

bool IsDirectoryToEnter(const WIN32_FIND_DATAW& entry) {
  constexpr DWORD kKind = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  return (entry.dwFileAttributes & kKind) == FILE_ATTRIBUTE_DIRECTORY;
}

bool IsDots(const WIN32_FIND_DATAW& entry) {
  const std::wstring_view name(entry.cFileName);
  return name == L"." || name == L"..";
}

class WindowsWalk : public DirectoryWalk {
 public:
  explicit WindowsWalk(WalkDepth depth) : depth_(depth) {}

  Result<> Enter(const std::filesystem::path& directory) {
    Level level{.directory = directory};
    level.search = FindHandle(::FindFirstFileW(SystemPath(directory / L"*").c_str(), &level.entry));
    if (!level.search) return tl::unexpected(LastFileError());
    levels_.push_back(std::move(level));
    return {};
  }

  Result<std::optional<std::filesystem::path>> Next() override {
    if (!to_enter_.empty()) {
      if (auto entered = Enter(std::exchange(to_enter_, {})); !entered)
        return Over(entered.error());
    }
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (!level.entry_unread && !::FindNextFileW(level.search.Get(), &level.entry)) {
        if (LastError() != kNoMoreFiles) return Over(LastFileError());
        levels_.pop_back();
        continue;
      }
      level.entry_unread = false;
      if (IsDots(level.entry)) continue;
      std::filesystem::path path = level.directory / level.entry.cFileName;
      if (depth_ == WalkDepth::whole_tree && IsDirectoryToEnter(level.entry)) to_enter_ = path;
      return path;
    }
    return std::nullopt;
  }

 private:
  struct Level {
    std::filesystem::path directory;
    FindHandle search{};
    WIN32_FIND_DATAW entry{};
    bool entry_unread = true;  // the search begins with its first entry already read
  };

  tl::unexpected<Error> Over(Error error) {
    levels_.clear();
    return tl::unexpected(std::move(error));
  }

  WalkDepth depth_;
  std::vector<Level> levels_;
  std::filesystem::path to_enter_;
};

}  // namespace

Result<std::unique_ptr<DirectoryWalk>> OpenWalk(const std::filesystem::path& directory,
                                                WalkDepth depth) {
  auto walk = std::make_unique<WindowsWalk>(depth);
  if (auto entered = walk->Enter(directory); !entered) return tl::unexpected(entered.error());
  return walk;
}

}  // namespace vosk::platform::windows
