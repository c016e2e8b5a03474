#include "dumps/procdump_search.h"

namespace vosk::dumps {

std::optional<FoundProcDump> FindProcDump(platform::Files& files,
                                          const std::filesystem::path& directory) {
  for (const auto name : {kPrimaryExecutable, kFallbackExecutable}) {
    auto path = directory / name;
    if (!files.Exists(path).value_or(false)) continue;
    if (files.SizeOf(path) == 0u) continue;
    return FoundProcDump{std::move(path), name == kFallbackExecutable};
  }
  return std::nullopt;
}

}  // namespace vosk::dumps
