// Free space on the Core's volume.
#pragma once

#include <cstdint>
#include <filesystem>

#include "console/log.h"
#include "platform/files.h"

namespace vosk::install {

// The free bytes that VOSK needs before it monitors, processes dumps or updates.
inline constexpr std::uint64_t kRequiredFreeSpace = std::uint64_t{2} << 30;

class DiskSpace {
 public:
  DiskSpace(platform::Files& files, console::LogSink& log);

  // Returns true if the path's volume has kRequiredFreeSpace for the caller; a path without a root
  // is looked up on the current directory's volume. Logs only if verbose.
  [[nodiscard]] bool CheckDiskSpace(const std::filesystem::path& path, bool verbose);

 private:
  [[nodiscard]] std::filesystem::path RootToCheck(const std::filesystem::path& path);
  [[nodiscard]] bool HasEnoughSpace(const std::filesystem::path& path, bool verbose);

  platform::Files& files_;
  console::LogSink& log_;
};

}  // namespace vosk::install
