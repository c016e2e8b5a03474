#include "install/msi_installer.h"

#include <fmt/format.h>

#include "identity.h"
#include "install/related_products.h"
#include "platform/clock.h"
#include "text/utf.h"

namespace vosk::install {

using text::PathToUtf8;

MsiInstaller::MsiInstaller(const platform::Host& host, console::LogSink& log,
                           console::TransferProgress& progress, process::ProcessControl& processes,
                           net::Downloader& downloader)
    : host_(host),
      log_(log),
      progress_(progress),
      downloader_(downloader),
      package_(host.files, host.installer, log),
      msiexec_(host.files, host.processes, log, processes) {}

bool MsiInstaller::UninstallThenInstall(const std::filesystem::path& msi) {
  log_.LogInfo(
      "Installer: Ensuring latest version via Uninstall (by UpgradeCode) then Clean Install: {}",
      msi);
  if (!IsInstallable(msi)) return false;
  const auto log_directory = msi.parent_path();
  const auto install_log = log_directory / kInstallLogName;
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
  const RelatedProducts found = FindRelatedProducts(host_.installer);
  bool clean = true;
  for (const std::string& code : found.codes) {
    if (!Uninstall(code, log_directory)) clean = false;
  }
  if (found.end != platform::kNoMoreItems) {
    log_.LogWarn(
        "Installer: MsiEnumRelatedProductsW failed during enumeration with error "
        "code: {}. Uninstall phase might be incomplete.",
        found.end.value);
    return false;
  }
  if (found.codes.empty()) {
    log_.LogInfo("Installer: No existing related products found using UpgradeCode.");
  } else if (!clean) {
    log_.LogWarn(
        "Installer: One or more errors occurred during the uninstall phase. Check logs above. "
        "Proceeding with install attempt.");
  } else {
    log_.LogInfo("Installer: Uninstall phase completed for existing versions found.");
  }
  return clean;
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
  const auto process = msiexec_.Start(arguments);
  if (!process) {
    log_.LogError("Installer: ShellExecuteExW failed for Uninstall command for {}. Error: {}",
                  product_code, process.error());
    if (process.error() == platform::kCancelled) {
      log_.LogWarn("Installer: Uninstall for {} might have been cancelled (UAC Denied?).",
                   product_code);
    }
    return false;
  }
  log_.LogInfo("Installer: Waiting for Uninstall process{} for {} to complete...",
               msiexec_.PidText(*process), product_code);
  // The exit code tells the rest: one that still runs has none but kStillActive.
  static_cast<void>(host_.processes.WaitFor(*process, kUninstallLimit));
  return JudgeUninstall(product_code, *process);
}

bool MsiInstaller::JudgeUninstall(const std::string& product_code,
                                  const platform::ProcessHandle& process) {
  const auto exit_code = host_.processes.ExitCode(process);
  if (!exit_code) {
    log_.LogWarn("Installer: Failed to get Uninstall exit code for {}. Error: {}", product_code,
                 exit_code.error());
    return false;
  }
  log_.LogInfo("Installer: Uninstall for {} finished with exit code: {}", product_code, *exit_code);
  if (*exit_code == kInstallSuccess) {
    log_.LogInfo("Installer: Successfully uninstalled: {}", product_code);
    return true;
  }
  if (*exit_code == kUnknownProduct) return true;
  log_.LogWarn("Installer: Uninstall for {} finished with unexpected code {}. Check its log.",
               product_code, *exit_code);
  return false;
}

std::optional<std::uint32_t> MsiInstaller::Install(const std::filesystem::path& msi,
                                                   const std::filesystem::path& install_log) {
  log_.LogInfo("Installer: Step 2/2 - Performing clean install attempt...");
  static_cast<void>(host_.files.Remove(install_log));
  log_.LogInfo("Installer: Enabling install log: {}", install_log);
  const std::string arguments = InstallArguments(msi, install_log);
  log_.LogInfo("Installer: Executing Install Command: msiexec.exe {}", arguments);
  const auto process = msiexec_.Start(arguments);
  if (process) {
    log_.LogInfo("Installer: Waiting for Install process{} to complete...",
                 msiexec_.PidText(*process));
    return AwaitInstall(*process);
  }
  if (process.error() == platform::kCancelled) {
    log_.LogError("Installer: Install execution cancelled (UAC denied?). Error: 1223");
  } else {
    log_.LogError("Installer: ShellExecuteExW failed for Install command. Error: {}",
                  process.error());
  }
  return std::nullopt;
}

std::uint32_t MsiInstaller::AwaitInstall(const platform::ProcessHandle& process) {
  const auto outcome = host_.processes.WaitFor(process, kInstallLimit);
  if (!outcome) {
    log_.LogError("Installer: WaitForSingleObject failed for Install process. Error: {}",
                  outcome.error());
    return platform::kStillActive;
  }
  if (*outcome == platform::WaitOutcome::timed_out) {
    log_.LogError("Installer: Install process timed out after 5 minutes. Terminating...");
    msiexec_.EndOverdue(process);
    return platform::kStillActive;
  }
  const auto exit_code = host_.processes.ExitCode(process);
  if (!exit_code) {
    log_.LogWarn("Installer: Failed to get Install exit code after wait. Error: {}",
                 exit_code.error());
    return platform::kStillActive;
  }
  log_.LogInfo("Installer: Install process finished with exit code: {}", *exit_code);
  return *exit_code;
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
