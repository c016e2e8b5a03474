#include "install/self_rename.h"

namespace vosk::install {
namespace {

constexpr int kRemovalAttempts = 3;
constexpr std::chrono::milliseconds kRemovalPause{100};
// A virus scanner may hold what the installer has just put there; if the executable does not come
// back, VOSK ends.
constexpr int kReturnAttempts = 10;
constexpr std::chrono::milliseconds kReturnPause{500};

bool IsHeld(platform::ErrorCode error) {
  return error == platform::kAccessDenied || error == platform::kSharingViolation;
}

}  // namespace

SelfRename::SelfRename(platform::Clock& clock, platform::Files& files, platform::System& system,
                       console::LogSink& log)
    : clock_(clock), files_(files), system_(system), log_(log) {}

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

  const auto renamed = files_.Rename(*own, target);
  if (renamed) {
    log_.LogInfo("RenameSelf: Successfully renamed running executable to: {}", target);
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

bool SelfRename::RenameBack(const std::filesystem::path& old_path) {
  log_.LogError("Update: Attempting to rename self back from '.old'...");
  std::filesystem::path own = old_path;
  own.replace_extension();
  // The system still knows the running executable by the name under which it was started.
  if (const auto asked = system_.ModulePath()) own = *asked;
  auto renamed = files_.Replace(old_path, own);
  for (int attempt = 1; !renamed && IsHeld(renamed.error().code) && attempt < kReturnAttempts;
       ++attempt) {
    clock_.SleepFor(kReturnPause);
    renamed = files_.Replace(old_path, own);
  }
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
