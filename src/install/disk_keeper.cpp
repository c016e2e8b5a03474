#include "install/disk_keeper.h"

#include <fmt/format.h>

#include <algorithm>

#include "identity.h"
#include "install/fixed_path.h"
#include "install/tree_removal.h"
#include "install/work_files.h"
#include "text/utf.h"

namespace vosk::install {
namespace {

using Path = std::filesystem::path;

// A file in use is often free again after a moment: a virus scanner lets go of it.
constexpr int kDeletionAttempts = 3;
constexpr std::chrono::milliseconds kRetryDelay{50};
constexpr std::chrono::hours kOldDumpAge{24};

double Kibibytes(std::uint64_t bytes, int power) {
  auto size = static_cast<double>(bytes);
  for (int n = 0; n < power; ++n) size /= 1024;
  return size;
}
double InMegabytes(std::uint64_t bytes) {
  return Kibibytes(bytes, 2);
}
double InGigabytes(std::uint64_t bytes) {
  return Kibibytes(bytes, 3);
}

enum class Leftover { no, yes, when_old };

// Loose on purpose: whatever carries one of VOSK's endings is taken. The name is in lower case.
Leftover JudgeName(std::string_view name) {
  const auto has = [name](std::string_view part) { return name.find(part) != name.npos; };
  if (has(".failed_upload") || has(".failed_zip")) return Leftover::yes;
  if (has("veldran") && (has(".dmp") || has(".zip"))) return Leftover::when_old;
  return name == "procdump.zip" ? Leftover::yes : Leftover::no;
}

}  // namespace

DiskKeeper::DiskKeeper(platform::Files& files, platform::Clock& clock, console::LogSink& log,
                       process::ProcessControl& processes)
    : files_(files), clock_(clock), log_(log), processes_(processes) {}

bool DiskKeeper::CheckDiskSpace(const Path& path, bool verbose) try {
  return HasEnoughSpace(path, verbose);
} catch (const std::exception& problem) {
  log_.LogError("CheckDiskSpace: Exception while determining root path or checking space: {}",
                problem.what());
  return false;
}

Path DiskKeeper::RootToCheck(const Path& path) {
  if (Path root = VolumeRoot(path); !root.empty()) return root;
  const auto current = files_.CurrentDirectory();
  return current ? VolumeRoot(*current) : Path();
}

bool DiskKeeper::HasEnoughSpace(const Path& path, bool verbose) {
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

bool DiskKeeper::ClearDirectory(const Path& directory) {
  const std::string name = text::PathToUtf8(directory);
  log_.LogInfo("Attempting to clear contents of directory: {}", name);
  try {
    if (const auto settled = SettledWithoutClearing(directory)) return *settled;
    const Cleared cleared = ClearEntries(directory);
    log_.LogInfo("ClearDirectory: Finished clearing [{}]. Deleted: {}, Failed: {}", name,
                 cleared.deleted, cleared.failed);
    return cleared.failed == 0 && !cleared.stopped;
  } catch (const std::exception& problem) {
    log_.LogError("ClearDirectory: Exception during directory iteration setup for [{}]: {}", name,
                  problem.what());
    return false;
  }
}

// The verdict on a directory that there is nothing to clear in, or that must not be cleared.
std::optional<bool> DiskKeeper::SettledWithoutClearing(const Path& directory) {
  const std::string name = text::PathToUtf8(directory);
  if (!IsFixedPath(directory)) {
    log_.LogError("ClearDirectory: Provided path is not absolute: {}", name);
    return false;
  }
  const auto exists = files_.Exists(directory);
  if (!exists) {
    log_.LogError("ClearDirectory: Error checking existence of [{}]: {}", name, exists.error());
    return false;
  }
  if (!*exists) {
    log_.LogInfo("ClearDirectory: Directory does not exist, nothing to clear: {}", name);
    return true;
  }
  const auto type = files_.TypeOf(directory);
  const auto link = files_.IsLink(WithoutTrailingSeparator(directory));
  if (!type || !link) {
    log_.LogError("ClearDirectory: Error checking type of [{}]: {}", name,
                  type ? link.error() : type.error());
    return false;
  }
  if (*type != platform::FileType::directory) {
    log_.LogError("ClearDirectory: Provided path is not a directory: {}", name);
    return false;
  }
  if (*link) {
    // Whoever put it there may have led it to files that are not ours.
    log_.LogError("ClearDirectory: Provided path is only a link to a directory: {}", name);
    return false;
  }
  return std::nullopt;
}

DiskKeeper::Cleared DiskKeeper::ClearEntries(const Path& directory) {
  Cleared cleared;
  const auto stop = [&](const platform::Error& error) {
    log_.LogError("ClearDirectory: Error iterating directory [{}]: {}", directory, error);
    log_.LogError("ClearDirectory: Iteration stopped prematurely due to directory error: {}",
                  error);
    cleared.stopped = true;
    return cleared;
  };
  const auto walk = files_.Walk(directory, platform::WalkDepth::direct_entries);
  if (!walk) return stop(walk.error());
  while (true) {
    const auto entry = (*walk)->Next();
    if (!entry) return stop(entry.error());
    if (!*entry) return cleared;
    ++(DeleteEntry(**entry, directory) ? cleared.deleted : cleared.failed);
  }
}

bool DiskKeeper::DeleteEntry(const Path& entry, const Path& directory) try {
  return TryDeleteEntry(entry, directory);
} catch (const std::filesystem::filesystem_error& problem) {
  log_.LogError("ClearDirectory: Filesystem exception deleting entry [{}]: {}", entry,
                problem.what());
  return false;
} catch (const std::exception& problem) {
  log_.LogError("ClearDirectory: Standard exception deleting entry [{}]: {}", entry,
                problem.what());
  return false;
} catch (...) {
  log_.LogError("ClearDirectory: Unknown exception deleting entry [{}]", entry);
  return false;
}

bool DiskKeeper::TryDeleteEntry(const Path& entry, const Path& directory) {
  const std::string name = text::PathToUtf8(entry);
  for (int attempt = 1; true; ++attempt) {
    const auto removed = RemoveTree(files_, entry, directory);
    if (removed) return true;
    if (attempt == kDeletionAttempts) {
      log_.LogError("ClearDirectory: Failed to delete [{}] after retries. Error: {}", name,
                    removed.error());
      return false;
    }
    log_.LogWarn("ClearDirectory: Failed to delete [{}], retrying in 50ms. Error: {}", name,
                 removed.error());
    clock_.SleepFor(kRetryDelay);
  }
}

std::uint64_t DiskKeeper::CleanUpStorage(const Path& dump_storage_directory,
                                         const Path& temp_directory) {
  log_.LogWarn("Initiating storage cleanup due to insufficient disk space...");
  std::uint64_t freed = CleanDumpStorage(dump_storage_directory, temp_directory);
  freed += RemoveInstallDirectory(temp_directory);
  freed += ScanTempDirectory(temp_directory);
  processes_.TerminateProcDumpInstances();
  log_.LogInfo("Terminated any orphaned ProcDump instances");
  log_.LogWarn("Storage cleanup completed. Total space freed: {:.2f} MB ({:.2f} GB)",
               InMegabytes(freed), InGigabytes(freed));
  return freed;
}

std::uint64_t DiskKeeper::CleanDumpStorage(const Path& directory, const Path& temp_directory) {
  const std::string name = text::PathToUtf8(directory);
  const std::string failure = fmt::format("Failed to fully clear dump storage directory {}", name);
  log_.LogInfo("Cleaning dump storage directory: {}", name);
  try {
    // Everything in there goes; a place that was mixed up must not.
    if (WithoutTrailingSeparator(directory) != temp_directory / identity::kDumpStorageName) {
      log_.LogError("{}: it does not lie in {}", failure, temp_directory);
      return 0;
    }
    const std::uint64_t size = TreeSize(files_, directory);
    if (ClearDirectory(directory)) {
      log_.LogInfo("Cleared dump storage directory. Freed approximately {:.2f} MB",
                   InMegabytes(size));
      return size;
    }
    log_.LogError(failure);
    return size - std::min(size, TreeSize(files_, directory));
  } catch (const std::exception& problem) {
    log_.LogError("{}: {}", failure, problem.what());
    return 0;
  }
}

std::uint64_t DiskKeeper::RemoveInstallDirectory(const Path& temp_directory) try {
  const Path directory = temp_directory / kWorkDirectoryName;
  const std::string name = text::PathToUtf8(directory);
  log_.LogInfo("Cleaning installation temp directory: {}", name);
  const std::uint64_t size = TreeSize(files_, directory);
  if (const auto removed = RemoveTree(files_, directory, temp_directory); !removed) {
    log_.LogError("Failed to remove installation temp directory: {}, Error: {}", name,
                  removed.error());
    return size - std::min(size, TreeSize(files_, directory));
  }
  log_.LogInfo("Removed installation temp directory. Freed approximately {:.2f} MB",
               InMegabytes(size));
  return size;
} catch (const std::exception& problem) {
  log_.LogError("Exception cleaning installation temp directory: {}", problem.what());
  return 0;
}

std::uint64_t DiskKeeper::ScanTempDirectory(const Path& temp_directory) {
  log_.LogInfo("Scanning temp directory for old VOSK files: {}", temp_directory);
  std::uint64_t freed = 0;
  int removed = 0;
  const auto stop = [&](std::string_view reason) {
    log_.LogError("Exception scanning temp directory: {}", reason);
    return freed;
  };
  try {
    if (!IsFixedPath(temp_directory)) return stop("its path is not absolute");
    const auto walk = files_.Walk(temp_directory, platform::WalkDepth::direct_entries);
    if (!walk) return stop(walk.error().text);
    while (true) {
      const auto entry = (*walk)->Next();
      if (!entry) return stop(entry.error().text);
      if (!*entry) break;
      const auto size = RemoveWhereOld(**entry);
      if (!size) continue;
      freed += *size;
      ++removed;
    }
  } catch (const std::exception& problem) {
    return stop(problem.what());
  }
  log_.LogInfo("Removed {} old VOSK-related files. Freed {:.2f} MB", removed, InMegabytes(freed));
  return freed;
}

platform::Result<bool> DiskKeeper::IsOldFile(const Path& path, std::string_view name) {
  const Leftover judgement = JudgeName(text::ToLowerAscii(name));
  if (judgement == Leftover::no) return false;
  const auto link = files_.IsLink(path);
  if (!link || *link) return link.map([](bool) { return false; });
  const auto type = files_.TypeOf(path);
  if (!type) return tl::unexpected(type.error());
  if (*type != platform::FileType::regular) return false;
  if (judgement == Leftover::yes) return true;
  return files_.LastWriteTime(path).map(
      [this](auto written) { return clock_.WallNow() - written > kOldDumpAge; });
}

std::optional<std::uint64_t> DiskKeeper::RemoveWhereOld(const Path& path) {
  const std::string name = text::PathToUtf8(path.filename());
  const auto old = IsOldFile(path, name);
  if (old && !*old) return std::nullopt;
  const std::uint64_t size = files_.SizeOf(path).value_or(0);
  const auto removed = old ? files_.Remove(path) : old;
  if (!removed) {
    log_.LogWarn("Failed to remove old file: {}. Error: {}", name, removed.error());
    return std::nullopt;
  }
  if (!*removed) return std::nullopt;  // somebody else was faster
  log_.LogInfo("Removed old file: {} ({} KB)", name, size / 1024);
  return size;
}

}  // namespace vosk::install
