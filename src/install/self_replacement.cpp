// The part of an update during which VOSK's executable is out of its place.
#include <fmt/format.h>

#include "identity.h"
#include "install/related_products.h"
#include "install/self_update.h"
#include "platform/clock.h"
#include "text/utf.h"

namespace vosk::install {
namespace {

using text::PathToUtf8;

constexpr int kAppearanceChecks = 5;
constexpr std::chrono::seconds kAppearancePause{1};

}  // namespace

bool SelfUpdate::Replace(const UpdateRequest& request, const Work& work) {
  UninstallOldVersions(work);
  return InstallNewVersion(work) && HandOver(request.core_directory);
}

void SelfUpdate::UninstallOldVersions(const Work& work) {
  log_.LogInfo("Update Step 6b/7: Uninstalling previous VELDRAN Core versions (best effort)...");
  const RelatedProducts found = FindRelatedProducts(host_.installer);
  bool clean = true;
  for (const std::string& code : found.codes) {
    if (!UninstallOldVersion(code, work)) clean = false;
  }
  if (found.end != platform::kNoMoreItems) {
    log_.LogWarn("Update: MsiEnumRelatedProductsW failed during enumeration: {}", found.end.value);
    clean = false;
  }
  if (!clean) {
    log_.LogWarn("Update Step 6b/7: Finished uninstall attempt with errors.");
  } else if (found.codes.empty()) {
    log_.LogInfo("Update Step 6b/7: No previous versions found to uninstall.");
  } else {
    log_.LogInfo("Update Step 6b/7: Uninstall attempt finished successfully for found versions.");
  }
}

bool SelfUpdate::UninstallOldVersion(const std::string& product_code, const Work& work) {
  log_.LogInfo("Update: Uninstalling ProductCode: {}", product_code);
  const auto log_path = UninstallLogIn(work.directory, product_code);
  std::uint32_t exit_code = platform::kStillActive;
  if (!msiexec_.RunStep("Uninstall", UninstallArguments(product_code, log_path), log_path,
                        kUninstallLimit, exit_code)) {
    return false;
  }
  return exit_code == kInstallSuccess || exit_code == kUnknownProduct;
}

bool SelfUpdate::InstallNewVersion(const Work& work) {
  log_.LogInfo("Update Step 7/7: Installing new version...");
  const auto log_path = work.directory / kInstallLogName;
  std::uint32_t exit_code = platform::kStillActive;
  if (!msiexec_.RunStep("Install", InstallArguments(work.msi, log_path), log_path, kInstallLimit,
                        exit_code)) {
    log_.LogError("Update: Failed to execute install command. Aborting update.");
    return false;
  }
  if (!JudgeInstall(exit_code)) return false;
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

bool SelfUpdate::HandOver(const std::filesystem::path& core_directory) {
  log_.LogInfo("Update Step 7b/7: Checking for/launching new VOSK instance...");
  const auto executable = core_directory / identity::kSupervisorExecutable;
  if (!host_.files.Exists(executable).value_or(false)) {
    log_.LogError("Update: New VOSK executable not found after install at: {}. Cannot relaunch.",
                  executable);
    return false;
  }
  if (!NewInstanceAppears() && !LaunchNewInstance(executable)) return false;
  g_terminateMonitoring_.store(true);
  return true;
}

bool SelfUpdate::NewInstanceAppears() {
  log_.LogInfo("Update: Waiting 5 seconds for MSI to potentially auto-launch new VOSK...");
  for (int check = 0; check < kAppearanceChecks; ++check) {
    host_.clock.SleepFor(kAppearancePause);
    // This instance is one of those found.
    if (processes_.FindTargetProcessesByName(identity::kSupervisorExecutable).size() > 1) {
      log_.LogWarn("Update: Detected another {} process. Assuming new version.",
                   text::WideToUtf8(identity::kSupervisorExecutable));
      log_.LogWarn("Update: Exiting old VOSK to allow new instance to run.");
      return true;
    }
  }
  return false;
}

bool SelfUpdate::LaunchNewInstance(const std::filesystem::path& executable) {
  log_.LogWarn("Update: New VOSK instance not detected. Attempting manual launch...");
  // A console of its own: this one is given back to whoever started the old instance.
  const auto started =
      host_.processes.Start({.command_line = fmt::format("\"{}\"", PathToUtf8(executable)),
                             .working_directory = executable.parent_path(),
                             .console = platform::ConsoleOfChild::new_console});
  if (!started) {
    log_.LogError("Update: FAILED to launch NEW VOSK manually! Error: {}", started.error());
    return false;
  }
  log_.LogWarn("Update: Successfully launched NEW VOSK manually (PID: {}). Old VOSK will now exit.",
               started->pid);
  return true;
}

}  // namespace vosk::install
