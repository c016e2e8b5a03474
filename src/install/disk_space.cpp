#include "install/disk_space.h"

#include "files/fixed_path.h"

namespace vosk::install {
namespace {

using Path = std::filesystem::path;

double InGigabytes(std::uint64_t bytes) {
  return static_cast<double>(bytes) / (std::uint64_t{1} << 30);
}

}  // namespace

DiskSpace::DiskSpace(platform::Files& files, console::LogSink& log) : files_(files), log_(log) {}

bool DiskSpace::CheckDiskSpace(const Path& path, bool verbose) try {
  return HasEnoughSpace(path, verbose);
} catch (const std::exception& problem) {
  log_.LogError("CheckDiskSpace: Exception while determining root path or checking space: {}",
                problem.what());
  return false;
}

Path DiskSpace::RootToCheck(const Path& path) {
  if (Path root = files::VolumeRoot(path); !root.empty()) return root;
  const auto current = files_.CurrentDirectory();
  return current ? files::VolumeRoot(*current) : Path();
}

bool DiskSpace::HasEnoughSpace(const Path& path, bool verbose) {
  const Path root = RootToCheck(path);
  if (root.empty()) {
    if (verbose) {
      log_.LogError(
          "CheckDiskSpace: Cannot determine root path for checking space (pathToCheck has no root "
          "and GetCurrentDirectory failed).");
    }
    return false;
  }
  if (verbose) {
    log_.LogInfo("CheckDiskSpace: Checking free space on volume: {}", root);
  }
  const auto available = files_.FreeSpace(root);
  if (!available) {
    if (verbose) {
      log_.LogError("CheckDiskSpace: GetDiskFreeSpaceExW failed for path '{}'. Error: {}", root,
                    available.error());
    }
    return false;
  }
  if (verbose) {
    log_.LogInfo("CheckDiskSpace: Available free space: {:.2f} GB. Required: {:.2f} GB.",
                 InGigabytes(*available), InGigabytes(kRequiredFreeSpace));
  }
  if (*available >= kRequiredFreeSpace) return true;
  if (verbose) log_.LogError("CheckDiskSpace: Insufficient free disk space available.");
  return false;
}

}  // namespace vosk::install
