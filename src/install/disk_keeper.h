// Free space on the Core's volume: the check for it, and winning it back from VOSK's own leftovers.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "process/process_control.h"

namespace vosk::install {

// What VOSK needs free before it monitors, processes dumps or updates, in bytes.
inline constexpr std::uint64_t kRequiredFreeSpace = std::uint64_t{2} << 30;

class DiskKeeper {
 public:
  DiskKeeper(platform::Files& files, platform::Clock& clock, console::LogSink& log,
             process::ProcessControl& processes);

  // True when the path's volume has kRequiredFreeSpace for the caller; a path without a root is
  // looked up on the current directory's volume. Logs only when verbose.
  [[nodiscard]] bool CheckDiskSpace(const std::filesystem::path& path, bool verbose);

  // Deletes everything inside the directory, trying again where something is in use. True when
  // nothing is left over. Refuses a relative path and a link to a directory.
  bool ClearDirectory(const std::filesystem::path& directory);

  // Deletes every dump and report in the dump storage, the installation work directory, and VOSK's
  // leftovers in the temporary directory; ends stray dump monitors. Gives the bytes freed.
  std::uint64_t CleanUpStorage(const std::filesystem::path& dump_storage_directory,
                               const std::filesystem::path& temp_directory);

 private:
  struct Cleared {
    int deleted = 0;
    int failed = 0;
    bool stopped = false;
  };
  [[nodiscard]] std::filesystem::path RootToCheck(const std::filesystem::path& path);
  [[nodiscard]] bool HasEnoughSpace(const std::filesystem::path& path, bool verbose);
  [[nodiscard]] std::optional<bool> SettledWithoutClearing(const std::filesystem::path& directory);
  Cleared ClearEntries(const std::filesystem::path& directory);
  bool DeleteEntry(const std::filesystem::path& entry, const std::filesystem::path& directory);
  bool TryDeleteEntry(const std::filesystem::path& entry, const std::filesystem::path& directory);

  std::uint64_t CleanDumpStorage(const std::filesystem::path& directory,
                                 const std::filesystem::path& temp_directory);
  std::uint64_t RemoveInstallDirectory(const std::filesystem::path& temp_directory);
  std::uint64_t ScanTempDirectory(const std::filesystem::path& temp_directory);
  platform::Result<bool> IsOldFile(const std::filesystem::path& path, std::string_view name);
  // The size of a file that was removed.
  std::optional<std::uint64_t> RemoveWhereOld(const std::filesystem::path& path);

  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
};

}  // namespace vosk::install
