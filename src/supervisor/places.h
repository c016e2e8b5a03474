// The files and folders that VOSK works with, fixed at start-up.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "console/log.h"
#include "platform/files.h"
#include "platform/system.h"

namespace vosk::supervisor {

struct Places {
  std::filesystem::path supervisor_directory;
  std::filesystem::path dump_storage_directory;
  std::filesystem::path target_path;
  std::filesystem::path target_directory;
  std::filesystem::path log_root_directory;  // empty: the Core's logs are out of reach

  [[nodiscard]] std::filesystem::path TempDirectory() const {
    return dump_storage_directory.parent_path();
  }
};

// What the log says while the Core is looked for; the path follows each text but `found`. An empty
// `missing` is not logged.
struct SearchTexts {
  std::string_view checking;
  std::string_view found;
  std::string_view missing;
};
struct CoreSearchTexts {
  SearchTexts at_default;
  SearchTexts at_fallback;
};

inline constexpr CoreSearchTexts kSearchAfterInstallation{
    .at_default = {.checking = "Re-checking default path: ",
                   .found = "Target found at default location after installation.",
                   .missing = ""},
    .at_fallback = {.checking = "Re-checking fallback path: ",
                    .found = "Target found at fallback location after installation.",
                    .missing = ""}};

// Looks for the Core at its default place, then beside VOSK, and makes the first one found the
// target. Returns false, with the target as it was, if it is in neither place.
[[nodiscard]] bool FindCore(platform::Files& files, console::LogSink& log,
                            const CoreSearchTexts& texts, Places& places);

// Returns the Core's stats directory below the roaming application data.
[[nodiscard]] std::filesystem::path LogRootBelow(const std::filesystem::path& roaming_app_data);
// The same if it is there; nothing if it is not, or out of reach.
[[nodiscard]] std::optional<std::filesystem::path> FindLogRoot(platform::System& system,
                                                               platform::Files& files);

}  // namespace vosk::supervisor
