#include "install/self_update.h"

#include "install/ending_held_off.h"
#include "install/related_products.h"
#include "net/version_compare.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace vosk::install {
namespace {

// The exit code that a step gets if it was ended because it took too long.
constexpr std::uint32_t kWaitTimeout = 258;

}  // namespace

SelfUpdate::SelfUpdate(const platform::Host& host, console::LogSink& log,
                       process::ProcessControl& processes, CorePackage& package, Msiexec& msiexec,
                       CoreVersion& core_version, std::atomic<bool>& g_terminateMonitoring)
    : host_(host),
      log_(log),
      package_(package),
      msiexec_(msiexec),
      core_version_(core_version),
      g_terminateMonitoring_(g_terminateMonitoring),
      self_rename_(host.clock, host.files, host.system, log),
      successor_(host, log, processes) {}

bool SelfUpdate::Run(const UpdateRequest& request) {
  log_.LogWarn("--- Starting Update Sequence to Version {} ---", request.expected_version);
  const auto temp_directory = request.dump_storage_directory.parent_path();
  if (temp_directory.empty()) {
    log_.LogError(
        "Update Error: Cannot determine parent path for temp directory from dump path. "
        "Aborting. Error: '{}' has no parent.",
        request.dump_storage_directory);
    return false;
  }
  const WorkDirectory work(host_.files, temp_directory);
  const bool success = RunSteps(request, work);
  if (success) {
    core_version_.Set(request.expected_version);
    log_.LogInfo("Update: Successfully updated internal version tracker to {}",
                 core_version_.Current());
  }
  log_.LogInfo("Update: Cleaning up temporary install directory: {}", work.Path());
  if (const auto removed = work.Remove(); !removed) {
    log_.LogWarn("Update: Failed to fully cleanup temp directory: {}", removed.error());
  }
  log_.LogInfo("--- Update Sequence Finished (Overall Success: {}) ---", success ? "Yes" : "No");
  return success;
}

bool SelfUpdate::RunSteps(const UpdateRequest& request, const WorkDirectory& work) {
  if (!PrepareWorkDirectory(work)) return false;
  if (!FetchPackage(work)) return false;
  if (!ValidateVersion(request.expected_version, work)) return false;
  const auto names = self_rename_.CheckRenameSelf();
  if (!names) return false;
  if (!TerminateProcesses(request)) return false;
  ClearCoreVersionFile(request.log_root_directory);
  return ReplaceSelf(request, work, *names);
}

bool SelfUpdate::ReplaceSelf(const UpdateRequest& request, const WorkDirectory& work,
                             const SelfNames& names) {
  log_.LogInfo("Update Step 6/7: Renaming current VOSK executable...");
  EndingHeldOff held_off(host_, log_, names.own, names.old);
  const auto old_path = self_rename_.RenameSelf();
  if (!old_path) {
    log_.LogError("Update Step 6/7: Failed to rename self! Aborting update.");
    return false;
  }
  log_.LogInfo("Update Step 6/7: Rename successful.");
  const bool replaced = Replace(request, work);
  held_off.TellOfRefusals();
  if (replaced) return true;
  log_.LogError("Update: Update sequence failed at some step.");
  // Without an executable nobody could start VOSK again; the operator has to see that it is gone.
  if (!self_rename_.RenameBack(*old_path)) g_terminateMonitoring_.store(true);
  return false;
}

bool SelfUpdate::PrepareWorkDirectory(const WorkDirectory& work) {
  log_.LogInfo("Update Step 1/7: Preparing temporary download directory...");
  if (const auto removed = work.Remove(); !removed) {
    log_.LogWarn("Update Warning: Failed to remove old install temp directory: {}",
                 removed.error());
  }
  if (const auto created = work.Create(); !created) {
    log_.LogError(
        "Update Error: Failed to create temp install directory '{}'. Error: {}. Aborting.",
        work.Path(), created.error());
    return false;
  }
  log_.LogInfo("Update Step 1/7: Temp directory ready.");
  return true;
}

bool SelfUpdate::FetchPackage(const WorkDirectory& work) {
  log_.LogInfo("Update Step 2/7: Downloading and extracting new version...");
  if (!package_.Download(work.Zip())) {
    log_.LogError("Update: Failed download. Aborting before touching local installation.");
    return false;
  }
  if (!package_.ExtractMsi(work.Zip(), work.Path())) {
    log_.LogError("Update: Failed extraction. Aborting.");
    return false;
  }
  log_.LogInfo("Update Step 2/7: Download and extraction complete.");
  return true;
}

bool SelfUpdate::ValidateVersion(const std::string& expected, const WorkDirectory& work) {
  log_.LogInfo("Update Step 3/7: Validating MSI version matches expected version...");
  const std::string version = package_.GetMsiProductVersion(work.Msi());
  if (version.empty()) {
    log_.LogError("Update: Could not read ProductVersion from MSI. Aborting.");
    // If it cannot be deleted here, it goes with the work directory.
    static_cast<void>(host_.files.Remove(work.Zip()));
    log_.LogWarn("Update: Deleted downloaded ZIP to prevent retry loop.");
    return false;
  }
  const int order = net::CompareVersions(version, expected);
  if (order < 0) {
    log_.LogError(
        "Update: VERSION TOO OLD! Expected at least: {}, MSI contains: {}. The "
        "download package is older than the version reported by the network.",
        expected, version);
    log_.LogWarn(
        "Update: This likely means the download server has not yet been updated with the new "
        "release.");
    DiscardPackage(work);
    return false;
  }
  if (order == 0) {
    log_.LogInfo("Update Step 3/7: MSI version verified: {} matches expected {}", version,
                 expected);
  } else {
    // The dash has always been the single byte of the Windows-1252 code page.
    log_.LogInfo("Update Step 3/7: MSI version {} is newer than expected {} \x97 proceeding.",
                 version, expected);
  }
  return true;
}

void SelfUpdate::DiscardPackage(const WorkDirectory& work) {
  if (const auto removed = host_.files.Remove(work.Zip())) {
    log_.LogWarn("Update: Deleted ZIP file: {}", work.Zip());
  } else {
    log_.LogError("Update: Failed to delete ZIP: {}", removed.error());
  }
  static_cast<void>(host_.files.Remove(work.Msi()));
}

bool SelfUpdate::TerminateProcesses(const UpdateRequest& request) {
  log_.LogInfo("Update Step 4/7: Terminating current processes...");
  if (!request.end_core()) return false;
  log_.LogInfo("Update Step 4/7: Process termination phase complete.");
  return true;
}

void SelfUpdate::ClearCoreVersionFile(const std::filesystem::path& log_root_directory) {
  log_.LogInfo("Update Step 5/7: Clearing old CoreVersion.txt file...");
  if (log_root_directory.empty()) {
    log_.LogWarn(
        "Update: Cannot clear CoreVersion.txt because log root directory path is not known.");
    return;
  }
  try {
    const auto path = log_root_directory / kCoreVersionFile;
    const auto exists = host_.files.Exists(path);
    if (!exists) {
      log_.LogWarn("Update: Error checking existence of {} before removal. Error: {}", path,
                   exists.error());
      return;
    }
    if (!*exists) return;
    if (const auto removed = host_.files.Remove(path); !removed) {
      log_.LogWarn("Update: Failed to remove {}. Error: {}", path, removed.error());
      return;
    }
    log_.LogInfo("Update: Successfully removed {}", path);
  } catch (const std::exception& problem) {
    log_.LogError("Update: Exception while removing CoreVersion.txt: {}", problem.what());
  }
}

bool SelfUpdate::Replace(const UpdateRequest& request, const WorkDirectory& work) try {
  UninstallOldVersions(work);
  if (!InstallNewVersion(work) || !successor_.HandOver(request.core_directory)) return false;
  g_terminateMonitoring_.store(true);
  return true;
} catch (const std::exception& problem) {
  log_.LogError("Update: Exception while replacing the installation: {}", problem.what());
  return false;
}

void SelfUpdate::UninstallOldVersions(const WorkDirectory& work) {
  log_.LogInfo("Update Step 6b/7: Uninstalling previous VELDRAN Core versions (best effort)...");
  const UninstallTally tally = UninstallRelatedProducts(
      host_.installer,
      [&](const std::string& product_code) { return UninstallOldVersion(product_code, work); });
  if (tally.end != platform::kNoMoreItems) {
    log_.LogWarn("Update: MsiEnumRelatedProductsW failed during enumeration: {}", tally.end);
  }
  if (!tally.clean) {
    log_.LogWarn("Update Step 6b/7: Finished uninstall attempt with errors.");
  } else if (tally.found == 0) {
    log_.LogInfo("Update Step 6b/7: No previous versions found to uninstall.");
  } else {
    log_.LogInfo("Update Step 6b/7: Uninstall attempt finished successfully for found versions.");
  }
}

bool SelfUpdate::UninstallOldVersion(const std::string& product_code, const WorkDirectory& work) {
  log_.LogInfo("Update: Uninstalling ProductCode: {}", product_code);
  const auto log_path = UninstallLogIn(work.Path(), product_code);
  const auto exit_code = RunMsiexec("Uninstall", UninstallArguments(product_code, log_path),
                                    log_path, kUninstallLimit);
  return exit_code == kInstallSuccess || exit_code == kUnknownProduct;
}

bool SelfUpdate::InstallNewVersion(const WorkDirectory& work) {
  log_.LogInfo("Update Step 7/7: Installing new version...");
  const auto log_path = InstallLogIn(work.Path());
  const auto exit_code =
      RunMsiexec("Install", InstallArguments(work.Msi(), log_path), log_path, kInstallLimit);
  if (!exit_code) {
    log_.LogError("Update: Failed to execute install command. Aborting update.");
    return false;
  }
  if (!JudgeInstall(*exit_code)) return false;
  log_.LogInfo("Installer: Pausing briefly after Install completion...");
  host_.clock.SleepFor(kPauseAfterInstall);
  const auto core = InstalledCore();
  if (!host_.files.Exists(core).value_or(false)) {
    log_.LogError("Update: Core executable NOT FOUND after install at: {}", core);
    return false;
  }
  log_.LogInfo("Update: Core executable verified post-install.");
  return true;
}

bool SelfUpdate::JudgeInstall(std::uint32_t exit_code) {
  if (exit_code != kInstallSuccess && exit_code != kRebootRequired) {
    log_.LogError(
        "Update: Installation command failed (Code: {}). Check install log. Aborting "
        "update.",
        exit_code);
    return false;
  }
  log_.LogInfo("Update Step 7/7: Installation command reported success (Code: {})", exit_code);
  if (exit_code == kRebootRequired) {
    log_.LogWarn("Update: Reboot may be required for Core components.");
  }
  return true;
}

std::optional<std::uint32_t> SelfUpdate::RunMsiexec(std::string_view step,
                                                    const std::string& arguments,
                                                    const std::filesystem::path& log_path,
                                                    std::chrono::seconds limit) {
  log_.LogInfo("Installer: Step {} - Enabling log: {}", step, log_path);
  // msiexec complains if it cannot write its log; nothing else depends on the directory.
  static_cast<void>(host_.files.CreateDirectories(log_path.parent_path()));
  static_cast<void>(host_.files.Remove(log_path));
  log_.LogInfo("Installer: Step {} - Executing Command: msiexec.exe {}", step, arguments);
  return RepeatWhileBusy(host_.clock, log_, [&] { return RunMsiexecOnce(step, arguments, limit); });
}

std::optional<std::uint32_t> SelfUpdate::RunMsiexecOnce(std::string_view step,
                                                        const std::string& arguments,
                                                        std::chrono::seconds limit) {
  const auto run = msiexec_.Start(arguments);
  if (!run) {
    log_.LogError("Installer: ShellExecuteExW failed for {} command. Error: {}", step, run.error());
    if (run.error() == platform::kCancelled) {
      log_.LogWarn("Installer: {} step might have been cancelled (UAC Denied?).", step);
    }
    return std::nullopt;
  }
  log_.LogInfo("Installer: Waiting for {} process{} to complete...", step, run->PidText());
  return AwaitMsiexec(step, *run, limit);
}

std::uint32_t SelfUpdate::AwaitMsiexec(std::string_view step, const MsiexecRun& run,
                                       std::chrono::seconds limit) {
  const auto exit_code = msiexec_.Await(run, limit);
  if (exit_code) {
    log_.LogInfo("Installer: {} process finished with exit code: {}", step, *exit_code);
    return *exit_code;
  }
  const MsiexecFailure& failure = exit_code.error();
  switch (failure.kind) {
    case MsiexecFailure::Kind::wait_failed:
      log_.LogError("Installer: WaitForSingleObject failed for {} process. Error: {}", step,
                    failure.error);
      return failure.error.code.value;
    case MsiexecFailure::Kind::overdue:
      log_.LogError("Installer: {} process timed out after {} seconds. Terminating...", step,
                    limit.count());
      msiexec_.End(run);
      return kWaitTimeout;
    case MsiexecFailure::Kind::exit_code_unreadable:
      log_.LogError("Installer: Failed to get {} exit code after wait. Error: {}", step,
                    failure.error);
      break;
  }
  return platform::kStillActive;
}

}  // namespace vosk::install
