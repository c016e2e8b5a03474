#include "install/msi_installer.h"

#include "identity.h"
#include "install/related_products.h"
#include "platform/clock.h"

namespace vosk::install {

MsiInstaller::MsiInstaller(const platform::Host& host, console::LogSink& log,
                           console::TransferProgress& progress, CorePackage& package,
                           Msiexec& msiexec)
    : host_(host), log_(log), progress_(progress), package_(package), msiexec_(msiexec) {}

bool MsiInstaller::AutomatedInstall(const std::filesystem::path& temp_directory) {
  log_.LogWarn("VELDRAN Core launch failed or requested. Attempting automated install/update.");
  const WorkDirectory work(host_.files, temp_directory);
  if (!Prepare(work)) return false;
  const bool installed = InstallFromPackage(work);
  progress_.Reset();

  log_.LogInfo("Installer: Cleaning up temporary files...");
  if (const auto removed = work.Remove()) {
    log_.LogInfo("Installer: Temporary directory cleaned up.");
  } else {
    log_.LogWarn("Installer: Failed to fully clean up temp directory '{}': {}", work.Path(),
                 removed.error());
  }
  if (!installed) {
    log_.LogError("Installer: VELDRAN Core installation failed.");
    return false;
  }
  log_.LogInfo("Installer: VELDRAN Core installation process completed successfully.");
  return true;
}

bool MsiInstaller::Prepare(const WorkDirectory& work) {
  if (const auto removed = work.Remove(); !removed) {
    log_.LogWarn("Installer: Could not remove old temp install dir: {}", removed.error());
  }
  if (const auto created = work.Create(); !created) {
    log_.LogError("Installer: Failed to create temp install directory '{}': {}", work.Path(),
                  created.error());
    return false;
  }
  log_.LogInfo("Installer: Using temp directory: {}", work.Path());
  return true;
}

bool MsiInstaller::InstallFromPackage(const WorkDirectory& work) {
  const auto zip_path = work.Zip();
  log_.LogInfo("Installer: Downloading from: {}", identity::kCorePackageUrl);
  if (!package_.Download(zip_path)) {
    log_.LogError("Installer: Failed to download VELDRAN Core zip.");
    return false;
  }
  log_.LogInfo("Installer: Download complete: {}", zip_path);
  progress_.Begin("Extracting");
  if (!package_.ExtractMsi(zip_path, work.Path())) {
    log_.LogError("Installer: Failed to extract MSI from zip.");
    return false;
  }
  progress_.Begin("Installing");
  return UninstallThenInstall(work.Msi());
}

bool MsiInstaller::UninstallThenInstall(const std::filesystem::path& msi) {
  log_.LogInfo(
      "Installer: Ensuring latest version via Uninstall (by UpgradeCode) then Clean Install: {}",
      msi);
  if (!IsInstallable(msi)) return false;
  const auto log_directory = msi.parent_path();
  const auto install_log = InstallLogIn(log_directory);
  const bool uninstalled_cleanly = UninstallAll(log_directory);

  const auto exit_code = Install(msi, install_log);
  if (!exit_code) return false;
  if (*exit_code == kInstallSuccess || *exit_code == kRebootRequired) {
    return ConfirmInstall(*exit_code, install_log);
  }
  log_.LogError(
      "Installer: Install command failed, timed out, or exit code unavailable. "
      "Effective Exit Code: {}",
      *exit_code);
  log_.LogError("Installer: Check install log for details: {}", install_log);
  if (!uninstalled_cleanly) {
    log_.LogWarn(
        "Installer: Note: Errors also occurred during the prior uninstall phase. Check relevant "
        "uninstall logs.");
  }
  return false;
}

bool MsiInstaller::IsInstallable(const std::filesystem::path& msi) {
  const auto type = host_.files.TypeOf(msi);
  if (!type) {
    log_.LogError("Installer: MSI file does not exist or cannot be checked at {}", msi);
    return false;
  }
  if (*type != platform::FileType::regular) {
    log_.LogError("Installer: Provided path is not a regular file: {}", msi);
    return false;
  }
  if (msi.parent_path().empty()) {
    log_.LogError(
        "Installer: Cannot determine parent path for log files from MSI path: {} The "
        "path has no folder.",
        msi);
    return false;
  }
  return true;
}

bool MsiInstaller::UninstallAll(const std::filesystem::path& log_directory) {
  log_.LogInfo(
      "Installer: Step 1/2 - Finding and uninstalling existing versions using UpgradeCode: {}",
      identity::kCoreUpgradeCode);
  const UninstallTally tally = UninstallRelatedProducts(
      host_.installer,
      [&](const std::string& product_code) { return Uninstall(product_code, log_directory); });
  if (tally.end != platform::kNoMoreItems) {
    log_.LogWarn(
        "Installer: MsiEnumRelatedProductsW failed during enumeration with error "
        "code: {}. Uninstall phase might be incomplete.",
        tally.end);
  } else if (tally.found == 0) {
    log_.LogInfo("Installer: No existing related products found using UpgradeCode.");
  } else if (!tally.clean) {
    log_.LogWarn(
        "Installer: One or more errors occurred during the uninstall phase. Check logs above. "
        "Proceeding with install attempt.");
  } else {
    log_.LogInfo("Installer: Uninstall phase completed for existing versions found.");
  }
  return tally.clean;
}

bool MsiInstaller::Uninstall(const std::string& product_code,
                             const std::filesystem::path& log_directory) {
  log_.LogInfo("Installer: Found related product with ProductCode: {}. Attempting uninstall...",
               product_code);
  const auto log_path = UninstallLogIn(log_directory, product_code);
  static_cast<void>(host_.files.Remove(log_path));
  log_.LogInfo("Installer: Enabling uninstall log: {}", log_path);
  const std::string arguments = UninstallArguments(product_code, log_path);
  log_.LogInfo("Installer: Executing Uninstall Command: msiexec.exe {}", arguments);
  const auto exit_code =
      RepeatWhileBusy(host_.clock, log_, [&] { return RunUninstall(product_code, arguments); });
  if (!exit_code) return false;
  if (*exit_code == kInstallSuccess) {
    log_.LogInfo("Installer: Successfully uninstalled: {}", product_code);
    return true;
  }
  if (*exit_code == kUnknownProduct) return true;
  log_.LogWarn("Installer: Uninstall for {} finished with unexpected code {}. Check its log.",
               product_code, *exit_code);
  return false;
}

std::optional<std::uint32_t> MsiInstaller::RunUninstall(const std::string& product_code,
                                                        const std::string& arguments) {
  const auto run = msiexec_.Start(arguments);
  if (!run) {
    log_.LogError("Installer: ShellExecuteExW failed for Uninstall command for {}. Error: {}",
                  product_code, run.error());
    if (run.error() == platform::kCancelled) {
      log_.LogWarn("Installer: Uninstall for {} might have been cancelled (UAC Denied?).",
                   product_code);
    }
    return std::nullopt;
  }
  log_.LogInfo("Installer: Waiting for Uninstall process{} for {} to complete...", run->PidText(),
               product_code);
  return AwaitUninstall(product_code, *run);
}

std::optional<std::uint32_t> MsiInstaller::AwaitUninstall(const std::string& product_code,
                                                          const MsiexecRun& run) {
  auto exit_code = msiexec_.Await(run, kUninstallLimit);
  // One that takes longer runs on, and its exit code says so.
  if (!exit_code && exit_code.error().kind != MsiexecFailure::Kind::exit_code_unreadable) {
    exit_code = msiexec_.ExitCode(run);
  }
  if (!exit_code) {
    log_.LogWarn("Installer: Failed to get Uninstall exit code for {}. Error: {}", product_code,
                 exit_code.error().error);
    return std::nullopt;
  }
  log_.LogInfo("Installer: Uninstall for {} finished with exit code: {}", product_code, *exit_code);
  return *exit_code;
}

std::optional<std::uint32_t> MsiInstaller::Install(const std::filesystem::path& msi,
                                                   const std::filesystem::path& install_log) {
  log_.LogInfo("Installer: Step 2/2 - Performing clean install attempt...");
  static_cast<void>(host_.files.Remove(install_log));
  log_.LogInfo("Installer: Enabling install log: {}", install_log);
  const std::string arguments = InstallArguments(msi, install_log);
  log_.LogInfo("Installer: Executing Install Command: msiexec.exe {}", arguments);
  return RepeatWhileBusy(host_.clock, log_, [&] { return RunInstall(arguments); });
}

std::optional<std::uint32_t> MsiInstaller::RunInstall(const std::string& arguments) {
  const auto run = msiexec_.Start(arguments);
  if (run) {
    log_.LogInfo("Installer: Waiting for Install process{} to complete...", run->PidText());
    return AwaitInstall(*run);
  }
  if (run.error() == platform::kCancelled) {
    log_.LogError("Installer: Install execution cancelled (UAC denied?). Error: 1223");
  } else {
    log_.LogError("Installer: ShellExecuteExW failed for Install command. Error: {}", run.error());
  }
  return std::nullopt;
}

std::uint32_t MsiInstaller::AwaitInstall(const MsiexecRun& run) {
  const auto exit_code = msiexec_.Await(run, kInstallLimit);
  if (exit_code) {
    log_.LogInfo("Installer: Install process finished with exit code: {}", *exit_code);
    return *exit_code;
  }
  const MsiexecFailure& failure = exit_code.error();
  switch (failure.kind) {
    case MsiexecFailure::Kind::wait_failed:
      log_.LogError("Installer: WaitForSingleObject failed for Install process. Error: {}",
                    failure.error);
      break;
    case MsiexecFailure::Kind::overdue:
      log_.LogError("Installer: Install process timed out after 5 minutes. Terminating...");
      msiexec_.End(run);
      break;
    case MsiexecFailure::Kind::exit_code_unreadable:
      log_.LogWarn("Installer: Failed to get Install exit code after wait. Error: {}",
                   failure.error);
      break;
  }
  return platform::kStillActive;
}

bool MsiInstaller::ConfirmInstall(std::uint32_t exit_code,
                                  const std::filesystem::path& install_log) {
  log_.LogInfo("Installer: Install command reported success (Exit Code: {})", exit_code);
  if (exit_code == kRebootRequired) {
    log_.LogWarn("Installer: Reboot may be required to complete installation.");
  }
  log_.LogInfo("Installer: Pausing briefly after Install completion...");
  host_.clock.SleepFor(kPauseAfterInstall);
  const auto core = InstalledCore();
  const auto exists = host_.files.Exists(core);
  if (exists && *exists) {
    log_.LogInfo("Installer: Confirmed target executable exists after installation: {}", core);
    return true;
  }
  log_.LogError(
      "Installer: Install reported success, but target executable NOT FOUND at "
      "expected location: {}. Error checking: {}",
      core, exists ? "none" : exists.error().text);
  log_.LogError("Installer: Check install log for potential errors despite exit code 0/3010: {}",
                install_log);
  return false;
}

}  // namespace vosk::install
