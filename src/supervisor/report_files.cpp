#include "supervisor/report_files.h"

namespace vosk::supervisor {

std::filesystem::path HostInfoPathFor(const std::filesystem::path& dump) {
  auto name = dump.stem();
  name += "_hostInfo.txt";
  return dump.parent_path() / name;
}

std::filesystem::path WithSuffix(const std::filesystem::path& path, std::string_view suffix) {
  auto renamed = path;
  renamed += suffix;
  return renamed;
}

platform::Result<> ReplaceFile(platform::Files& files, const std::filesystem::path& from,
                               const std::filesystem::path& to) {
  if (files.Exists(to).value_or(true)) {
    if (const auto removed = files.Remove(to); !removed) return tl::unexpected(removed.error());
  }
  return files.Rename(from, to);
}

}  // namespace vosk::supervisor
