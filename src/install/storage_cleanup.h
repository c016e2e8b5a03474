// Frees disk space by deleting VOSK's own leftovers.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "process/process_control.h"

namespace vosk::install {

class StorageCleanup {
 public:
  StorageCleanup(platform::Files& files, platform::Clock& clock, console::LogSink& log,
                 process::ProcessControl& processes);

  // Deletes the unsent reports of earlier runs, every dump and report in the dump storage, the
  // installation work directory, and VOSK's leftovers in the temporary directory; ends stray dump
  // monitors. Returns the bytes freed.
  std::uint64_t CleanUpStorage(const std::filesystem::path& dump_storage_directory,
                               const std::filesystem::path& temp_directory);

 private:
  std::uint64_t RemoveUnsentReports(const std::filesystem::path& temp_directory);
  std::uint64_t CleanDumpStorage(const std::filesystem::path& directory,
                                 const std::filesystem::path& temp_directory);
  std::uint64_t RemoveInstallDirectory(const std::filesystem::path& temp_directory);
  // What the log says while a directory goes.
  struct RemovalTexts {
    std::string_view cleaning;
    std::string_view failed;
    std::string_view removed;
    std::string_view exception;
  };
  std::uint64_t RemoveDirectory(const std::filesystem::path& directory,
                                const std::filesystem::path& temp_directory,
                                const RemovalTexts& texts);
  std::uint64_t ScanTempDirectory(const std::filesystem::path& temp_directory);
  platform::Result<bool> IsOldFile(const std::filesystem::path& path, std::string_view name);
  // Returns the size of the file if it was removed.
  std::optional<std::uint64_t> RemoveIfOld(const std::filesystem::path& path);

  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
};

}  // namespace vosk::install
