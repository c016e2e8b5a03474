#include "supervisor/startup_provision.h"

#include <fmt/format.h>

#include "dumps/procdump_acquisition.h"
#include "files/directory_clearing.h"
#include "identity.h"
#include "install/work_directory.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

constexpr std::chrono::milliseconds kDiskSpacePause{1000};
constexpr std::uint64_t kMebibyte = 1'048'576;

}  // namespace

StartupProvision::StartupProvision(const platform::Host& host, console::LogSink& log,
                                   const Provisions& provisions)
    : host_(host), log_(log), provisions_(provisions) {}

tl::expected<void, std::string> StartupProvision::AcquireProcDump(const Places& places) {
  dumps::ProcDumpAcquisition acquisition(host_.files, host_.system, log_, provisions_.downloader);
  if (!acquisition.EnsureProcDumpExists(places.supervisor_directory,
                                        places.dump_storage_directory)) {
    return tl::unexpected<std::string>(
        "ProcDump could not be found or acquired. Cannot proceed with monitoring.");
  }
  if (places.dump_storage_directory.empty()) {
    log_.LogWarn("Dump storage directory path is invalid, cannot clear contents.");
  } else {
    files::ClearDirectory(host_.files, host_.clock, log_, places.dump_storage_directory);
  }
  return {};
}

void StartupProvision::RemoveUpdateLeftovers(const Places& places) {
  const install::WorkDirectory leftovers(host_.files, places.TempDirectory());
  if (!host_.files.Exists(leftovers.Path()).value_or(false)) return;
  log_.LogInfo("Removing installation directory left behind: {}", leftovers.Path());
  if (const auto removed = leftovers.Remove(); !removed) {
    log_.LogWarn("Failed to remove installation directory {}. Error: {}", leftovers.Path(),
                 removed.error());
  }
}

void StartupProvision::WaitForDiskSpace(const Places& places) {
  install::DiskSpace& space = provisions_.disk_space;
  // Where the Core will be is not settled yet: the current directory's volume stands for it.
  const std::filesystem::path unsettled;
  for (bool first_pass = true; !space.CheckDiskSpace(unsettled, first_pass); first_pass = false) {
    log_.LogWarn("Insufficient space for update. Attempting storage cleanup...");
    const std::uint64_t freed = provisions_.storage_cleanup.CleanUpStorage(
        places.dump_storage_directory, places.TempDirectory());
    if (space.CheckDiskSpace(unsettled, /*verbose=*/false)) {
      log_.LogInfo("Storage cleanup successful! Proceeding with update.");
    } else {
      log_.LogError("Even after freeing {} MB, insufficient space for update. Update aborted.",
                    freed / kMebibyte);
    }
    if (first_pass) log_.LogWarn("Storage space not sufficient. Halting VOSK Operations.");
    host_.clock.SleepFor(kDiskSpacePause);
  }
}

bool StartupProvision::InstallTarget(Places& places) {
  log_.LogWarn("Target executable '{}' not found. Attempting automatic installation...",
               text::WideToUtf8(identity::kCoreExecutable));
  if (!provisions_.msi_installer.AutomatedInstall(places.TempDirectory())) {
    log_.LogError("Automated installation failed.");
    return false;
  }
  log_.LogInfo("Automated installation process completed. Re-checking for target executable...");
  if (FindInstalledTarget(places)) return true;
  log_.LogWarn("Target STILL not found after installation attempt.");
  return false;
}

bool StartupProvision::FindInstalledTarget(Places& places) {
  const auto default_path = text::PathFromUtf8(identity::kDefaultTargetPath);
  log_.LogInfo("Re-checking default path: {}", default_path);
  if (host_.files.Exists(default_path).value_or(false)) {
    log_.LogInfo("Target found at default location after installation.");
    places.UseTarget(default_path);
    return true;
  }
  const auto fallback = places.supervisor_directory / identity::kCoreExecutable;
  log_.LogInfo("Re-checking fallback path: {}", fallback);
  if (!host_.files.Exists(fallback).value_or(false)) return false;
  log_.LogInfo("Target found at fallback location after installation.");
  places.UseTarget(fallback);
  return true;
}

}  // namespace vosk::supervisor
