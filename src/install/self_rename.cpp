#include "install/self_rename.h"

namespace vosk::install {
namespace {

constexpr int kRemovalAttempts = 3;
constexpr std::chrono::milliseconds kRemovalPause{100};
// A virus scanner looks at what was just started, or put there by the installer.
constexpr int kMoveAttempts = 10;
constexpr std::chrono::milliseconds kMovePause{500};

bool IsHeld(platform::ErrorCode error) {
  return error == platform::kAccessDenied || error == platform::kSharingViolation;
}

}  // namespace

SelfRename::SelfRename(platform::Clock& clock, platform::Files& files, platform::System& system,
                       console::LogSink& log)
    : clock_(clock), files_(files), system_(system), log_(log) {}

std::optional<SelfNames> SelfRename::CheckRenameSelf() {
  const auto own = system_.ModulePath();
  if (!own) {
    log_.LogError(
        "Update: Own path unknown. Aborting before touching local installation. Error: {}",
        own.error());
    return std::nullopt;
  }
  SelfNames names{.own = *own, .old = *own};
  names.old += ".old";
  // What is removed must not be held either.
  for (const auto& path : {names.own, names.old}) {
    if (path == names.old && !files_.Exists(path).value_or(false)) continue;
    if (const auto may = files_.CheckRename(path); !may) {
      log_.LogError("Update: {} is in use. Aborting before touching local installation. Error: {}",
                    path, may.error());
      return std::nullopt;
    }
  }
  return names;
}

std::optional<std::filesystem::path> SelfRename::RenameSelf() {
  log_.LogInfo("Attempting to rename currently running executable...");
  const auto own = system_.ModulePath();
  if (!own) {
    log_.LogError("RenameSelf: GetModuleFileNameW failed. Error: {}", own.error());
    return std::nullopt;
  }
  std::filesystem::path target = *own;
  target += ".old";
  log_.LogInfo("RenameSelf: Current path: {}", *own);
  log_.LogInfo("RenameSelf: Target old path: {}", target);
  if (!RemoveOlderSelf(target)) return std::nullopt;

  const auto renamed = MovePatiently(&platform::Files::Rename, *own, target);
  if (renamed) {
    // Before anything else, for the power may fail. It stays registered when all goes well, and
    // then does nothing, because an executable is in its place: the successor or this one.
    const auto registered = files_.RenameAtNextBoot(target, *own);
    log_.LogInfo("RenameSelf: Successfully renamed running executable to: {}", target);
    if (!registered) {
      log_.LogWarn("RenameSelf: The next boot will not undo it. Error: {}", registered.error());
    }
    return target;
  }
  const platform::ErrorCode error = renamed.error().code;
  if (IsHeld(error)) {
    log_.LogError("RenameSelf: Failed to rename executable - likely still locked (Error: {})",
                  error);
  } else {
    log_.LogError("RenameSelf: Failed to rename executable. Error code: {}", error);
  }
  // The rename may have happened although it reports a failure; the executable must not stay away.
  if (!files_.Exists(*own).value_or(true)) static_cast<void>(files_.Rename(target, *own));
  return std::nullopt;
}

bool SelfRename::RemoveOlderSelf(const std::filesystem::path& target) {
  const auto exists = files_.Exists(target);
  if (!exists) {
    log_.LogWarn("RenameSelf: Error checking existence of '.old' file. Error: {}", exists.error());
    return true;
  }
  if (!*exists) return true;
  log_.LogInfo("RenameSelf: Removing existing '.old' file: {}", target);
  for (int attempt = 1;; ++attempt) {
    const auto removed = files_.Remove(target);
    if (removed) {
      log_.LogInfo("RenameSelf: Successfully removed existing '.old' file.");
      return true;
    }
    if (attempt == kRemovalAttempts) {
      log_.LogWarn("RenameSelf: Failed to remove existing '.old' file after retries. Error: {}",
                   removed.error());
      return false;
    }
    clock_.SleepFor(kRemovalPause);
  }
}

platform::Result<> SelfRename::MovePatiently(Move move, const std::filesystem::path& from,
                                             const std::filesystem::path& to) {
  auto moved = (files_.*move)(from, to);
  for (int attempt = 1; !moved && IsHeld(moved.error().code) && attempt < kMoveAttempts;
       ++attempt) {
    clock_.SleepFor(kMovePause);
    moved = (files_.*move)(from, to);
  }
  return moved;
}

bool SelfRename::RenameBack(const std::filesystem::path& old_path) {
  log_.LogError("Update: Attempting to rename self back from '.old'...");
  std::filesystem::path own = old_path;
  own.replace_extension();
  // The system still knows the running executable by the name under which it was started.
  if (const auto asked = system_.ModulePath()) own = *asked;
  const auto renamed = MovePatiently(&platform::Files::Replace, old_path, own);
  if (!renamed) {
    log_.LogError(
        "Update: CRITICAL - Failed to rename self back! Manual intervention required. "
        "Error: {}",
        renamed.error());
    return false;
  }
  log_.LogInfo("Update: Renamed self back successfully.");
  return true;
}

}  // namespace vosk::install
