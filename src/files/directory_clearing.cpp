#include "files/directory_clearing.h"

#include <chrono>
#include <optional>

#include "files/fixed_path.h"
#include "files/tree_removal.h"

namespace vosk::files {
namespace {

using Path = std::filesystem::path;

// A file in use is often free again after a moment, when a virus scanner lets go of it.
constexpr int kDeletionAttempts = 3;
constexpr std::chrono::milliseconds kRetryDelay{50};

struct Cleared {
  int deleted = 0;
  int failed = 0;
  bool stopped = false;
};

class Clearing {
 public:
  Clearing(platform::Files& files, platform::Clock& clock, console::LogSink& log,
           const Path& directory)
      : files_(files), clock_(clock), log_(log), directory_(directory) {}

  bool Run();

 private:
  [[nodiscard]] std::optional<bool> SettledWithoutClearing();
  Cleared ClearEntries();
  bool DeleteEntry(const Path& entry);
  bool TryDeleteEntry(const Path& entry);

  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  const Path& directory_;
};

bool Clearing::Run() {
  log_.LogInfo("Attempting to clear contents of directory: {}", directory_);
  try {
    if (const auto settled = SettledWithoutClearing()) return *settled;
    const Cleared cleared = ClearEntries();
    log_.LogInfo("ClearDirectory: Finished clearing [{}]. Deleted: {}, Failed: {}", directory_,
                 cleared.deleted, cleared.failed);
    return cleared.failed == 0 && !cleared.stopped;
  } catch (const std::exception& problem) {
    log_.LogError("ClearDirectory: Exception during directory iteration setup for [{}]: {}",
                  directory_, problem.what());
    return false;
  }
}

// Returns the result if there is nothing to clear or the directory must not be cleared.
std::optional<bool> Clearing::SettledWithoutClearing() {
  if (!IsFixedPath(directory_)) {
    log_.LogError("ClearDirectory: Provided path is not absolute: {}", directory_);
    return false;
  }
  const auto exists = files_.Exists(directory_);
  if (!exists) {
    log_.LogError("ClearDirectory: Error checking existence of [{}]: {}", directory_,
                  exists.error());
    return false;
  }
  if (!*exists) {
    log_.LogInfo("ClearDirectory: Directory does not exist, nothing to clear: {}", directory_);
    return true;
  }
  const auto type = files_.TypeOf(directory_);
  const auto link = files_.IsLink(WithoutTrailingSeparator(directory_));
  if (!type || !link) {
    log_.LogError("ClearDirectory: Error checking type of [{}]: {}", directory_,
                  type ? link.error() : type.error());
    return false;
  }
  if (*type != platform::FileType::directory) {
    log_.LogError("ClearDirectory: Provided path is not a directory: {}", directory_);
    return false;
  }
  if (*link) {
    // Whoever put the link there may have pointed it at files that are not ours.
    log_.LogError("ClearDirectory: Provided path is only a link to a directory: {}", directory_);
    return false;
  }
  return std::nullopt;
}

Cleared Clearing::ClearEntries() {
  Cleared cleared;
  const auto stop = [&](const platform::Error& error) {
    log_.LogError("ClearDirectory: Error iterating directory [{}]: {}", directory_, error);
    log_.LogError("ClearDirectory: Iteration stopped prematurely due to directory error: {}",
                  error);
    cleared.stopped = true;
    return cleared;
  };
  const auto walk = files_.Walk(directory_, platform::WalkDepth::direct_entries);
  if (!walk) return stop(walk.error());
  while (true) {
    const auto entry = (*walk)->Next();
    if (!entry) return stop(entry.error());
    if (!*entry) return cleared;
    ++(DeleteEntry(**entry) ? cleared.deleted : cleared.failed);
  }
}

bool Clearing::DeleteEntry(const Path& entry) try {
  return TryDeleteEntry(entry);
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

bool Clearing::TryDeleteEntry(const Path& entry) {
  for (int attempt = 1; true; ++attempt) {
    const auto removed = RemoveTree(files_, entry, directory_);
    if (removed) return true;
    if (attempt == kDeletionAttempts) {
      log_.LogError("ClearDirectory: Failed to delete [{}] after retries. Error: {}", entry,
                    removed.error());
      return false;
    }
    log_.LogWarn("ClearDirectory: Failed to delete [{}], retrying in 50ms. Error: {}", entry,
                 removed.error());
    clock_.SleepFor(kRetryDelay);
  }
}

}  // namespace

bool ClearDirectory(platform::Files& files, platform::Clock& clock, console::LogSink& log,
                    const Path& directory) {
  return Clearing(files, clock, log, directory).Run();
}

}  // namespace vosk::files
