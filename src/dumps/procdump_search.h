#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "platform/files.h"

namespace vosk::dumps {

// ProcDump's executables beside VOSK.exe; the primary one is preferred.
inline constexpr std::u16string_view kPrimaryExecutable = u"procdump64.exe";
inline constexpr std::u16string_view kFallbackExecutable = u"procdump.exe";

struct FoundProcDump {
  std::filesystem::path path;
  bool is_fallback = false;
};

// Returns the executable in the directory; nothing if there is none that can be seen. An empty file
// is none: it is what a power cut leaves.
[[nodiscard]] std::optional<FoundProcDump> FindProcDump(platform::Files& files,
                                                        const std::filesystem::path& directory);

}  // namespace vosk::dumps
