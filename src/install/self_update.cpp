#include "install/self_update.h"

#include <fmt/format.h>

#include <mutex>

#include "files/tree_removal.h"
#include "identity.h"
#include "install/work_files.h"
#include "net/version_compare.h"
#include "text/utf.h"

namespace vosk::install {
namespace {

using text::PathToUtf8;

constexpr std::chrono::milliseconds kMonitorExitWait{2500};
constexpr std::chrono::milliseconds kCoreExitWait{5000};
constexpr std::uint32_t kTerminatedExitCode = 1;

}  // namespace

SelfUpdate::SelfUpdate(const platform::Host& host, console::LogSink& log,
                       process::ProcessControl& processes, net::Downloader& downloader,
                       CoreVersion& core_version, std::atomic<bool>& g_terminateMonitoring)
    : host_(host),
      log_(log),
      processes_(processes),
      downloader_(downloader),
      core_version_(core_version),
      g_terminateMonitoring_(g_terminateMonitoring),
      package_(host.files, host.installer, log),
      msiexec_(host.files, host.processes, log, processes),
      self_rename_(host.clock, host.files, host.system, log) {}

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
  const auto directory = temp_directory / kWorkDirectoryName;
  const Work work{directory, directory / kPackageZipName, directory / kMsiName};
  const bool success = RunSteps(request, work);
  if (success) {
    core_version_.Set(request.expected_version);
    log_.LogInfo("Update: Successfully updated internal version tracker to {}",
                 core_version_.Current());
  }
  log_.LogInfo("Update: Cleaning up temporary install directory: {}", work.directory);
  if (const auto removed = files::RemoveTree(host_.files, work.directory, work.directory);
      !removed) {
    log_.LogWarn("Update: Failed to fully cleanup temp directory: {}", removed.error());
  }
  log_.LogInfo("--- Update Sequence Finished (Overall Success: {}) ---", success ? "Yes" : "No");
  return success;
}

bool SelfUpdate::RunSteps(const UpdateRequest& request, const Work& work) {
  if (!PrepareWorkDirectory(work)) return false;
  if (!FetchPackage(work)) return false;
  if (!ValidateVersion(request.expected_version, work)) return false;
  if (!TerminateProcesses(request)) return false;
  ClearCoreVersionFile(request.log_root_directory);

  log_.LogInfo("Update Step 6/7: Renaming current VOSK executable...");
  const auto old_path = self_rename_.RenameSelf();
  if (!old_path) {
    log_.LogError("Update Step 6/7: Failed to rename self! Aborting update.");
    return false;
  }
  log_.LogInfo("Update Step 6/7: Rename successful.");
  if (Replace(request, work)) return true;
  log_.LogError("Update: Update sequence failed at some step.");
  // Without an executable nobody could start VOSK again; the operator has to see that it is gone.
  if (!self_rename_.RenameBack(*old_path)) g_terminateMonitoring_.store(true);
  return false;
}

bool SelfUpdate::PrepareWorkDirectory(const Work& work) {
  log_.LogInfo("Update Step 1/7: Preparing temporary download directory...");
  if (const auto removed = files::RemoveTree(host_.files, work.directory, work.directory);
      !removed) {
    log_.LogWarn("Update Warning: Failed to remove old install temp directory: {}",
                 removed.error());
  }
  if (const auto created = host_.files.CreateDirectories(work.directory); !created) {
    log_.LogError(
        "Update Error: Failed to create temp install directory '{}'. Error: {}. Aborting.",
        work.directory, created.error());
    return false;
  }
  log_.LogInfo("Update Step 1/7: Temp directory ready.");
  return true;
}

bool SelfUpdate::FetchPackage(const Work& work) {
  log_.LogInfo("Update Step 2/7: Downloading and extracting new version...");
  if (!downloader_.DownloadFile(std::string(identity::kCorePackageUrl), work.zip)) {
    log_.LogError("Update: Failed download. Aborting before touching local installation.");
    return false;
  }
  if (!package_.ExtractMsi(work.zip, work.directory)) {
    log_.LogError("Update: Failed extraction. Aborting.");
    return false;
  }
  log_.LogInfo("Update Step 2/7: Download and extraction complete.");
  return true;
}

bool SelfUpdate::ValidateVersion(const std::string& expected, const Work& work) {
  log_.LogInfo("Update Step 3/7: Validating MSI version matches expected version...");
  const std::string version = package_.GetMsiProductVersion(work.msi);
  if (version.empty()) {
    log_.LogError("Update: Could not read ProductVersion from MSI. Aborting.");
    // What cannot be deleted here goes with the work directory.
    static_cast<void>(host_.files.Remove(work.zip));
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

void SelfUpdate::DiscardPackage(const Work& work) {
  if (const auto removed = host_.files.Remove(work.zip)) {
    log_.LogWarn("Update: Deleted ZIP file: {}", work.zip);
  } else {
    log_.LogError("Update: Failed to delete ZIP: {}", removed.error());
  }
  static_cast<void>(host_.files.Remove(work.msi));
}

bool SelfUpdate::TerminateProcesses(const UpdateRequest& request) {
  log_.LogInfo("Update Step 4/7: Terminating current processes...");
  TerminateMonitor(request.hProcDump);
  if (!TerminateCore(request)) return false;
  log_.LogInfo("Update Step 4/7: Process termination phase complete.");
  return true;
}

void SelfUpdate::TerminateMonitor(platform::ProcessHandle& hProcDump) {
  const std::lock_guard lock(log_.ConsoleLock());
  if (!hProcDump) {
    log_.LogInfo("No active ProcDump process to terminate.");
    return;
  }
  log_.LogInfo("Terminating ProcDump (PID: {})...", host_.processes.Id(hProcDump).value_or(0));
  const auto terminated = processes_.TerminateProcessL(hProcDump, kTerminatedExitCode);
  if (!terminated) {
    log_.LogWarn("TerminateProcess failed for ProcDump (Error: {}). Might already be stopped.",
                 terminated.error());
  } else {
    const auto outcome = host_.processes.WaitFor(hProcDump, kMonitorExitWait);
    if (outcome && *outcome == platform::WaitOutcome::timed_out) {
      log_.LogWarn("ProcDump did not exit quickly after termination signal.");
    }
  }
  hProcDump.Reset();
}

bool SelfUpdate::TerminateCore(const UpdateRequest& request) {
  if (!request.hTargetProcess || request.core_pid == 0) {
    log_.LogInfo("No active Core process to terminate.");
    return true;
  }
  const platform::ProcessId pid = request.core_pid;
  log_.LogInfo("Terminating VELDRAN Core (PID: {})...", pid);
  const auto terminated = processes_.TerminateProcessL(request.hTargetProcess, kTerminatedExitCode);
  if (!terminated) {
    const platform::ErrorCode error = terminated.error().code;
    if (error == platform::kAccessDenied || error == platform::kInvalidHandle) {
      log_.LogInfo("TerminateProcess failed for Core (Error: {}) - likely already stopped.", error);
    } else {
      log_.LogWarn("TerminateProcess failed for Core (Error: {}). Might already be stopped.",
                   error);
    }
  }
  const auto outcome = host_.processes.WaitFor(request.hTargetProcess, kCoreExitWait);
  const bool ended =
      outcome ? *outcome == platform::WaitOutcome::finished : !processes_.IsProcessAlive(pid);
  request.hTargetProcess.Reset();
  if (!ended) {
    log_.LogError(
        "Update Error: Target Core process (PID: {}) did not terminate within timeout! "
        "Aborting update.",
        pid);
    return false;
  }
  log_.LogInfo("Update Step 4/7: Core process termination confirmed.");
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

}  // namespace vosk::install
