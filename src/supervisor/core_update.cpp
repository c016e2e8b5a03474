#include "supervisor/core_update.h"

#include <fmt/format.h>

#include "net/version_compare.h"
#include "platform/clock.h"
#include "supervisor/core_end_for_update.h"

namespace vosk::supervisor {
namespace {

constexpr std::chrono::minutes kUpdateCheckInterval{5};
constexpr int kNewer = 1;

}  // namespace

CoreUpdate::CoreUpdate(const platform::Host& host, console::LogSink& log,
                       const UpdateServices& services, const Places& places, SupervisorState& state)
    : host_(host), log_(log), services_(services), places_(places), state_(state) {}

std::string CoreUpdate::FetchVersion() {
  state_.last_fetched_version = services_.version_service.FetchVersion();
  return state_.last_fetched_version;
}

void CoreUpdate::CheckAtStartup() {
  log_.LogInfo("--- Startup Update Check ---");
  const std::string latest = FetchVersion();
  const std::string& current = services_.core_version.Current();
  if (latest.empty()) {
    log_.LogWarn("Startup update check: Could not fetch latest version. Skipping.");
  } else if (current == install::kUnknownVersion) {
    log_.LogInfo(
        "Startup update check: Current version unknown (0.0.0). Skipping update to avoid reinstall "
        "before first run.");
  } else {
    UpdateAtStartup(latest);
  }
  state_.last_update_check_time = host_.clock.SteadyNow();
  log_.LogInfo("--- Startup Update Check Complete ---");
}

void CoreUpdate::UpdateAtStartup(const std::string& latest) {
  const std::string current = services_.core_version.Current();
  const int order = net::CompareVersions(latest, current);
  if (order == net::kUnreadableVersion) {
    log_.LogWarn("Startup update check: Could not parse version strings for comparison.");
    return;
  }
  if (order == 0) {
    log_.LogInfo("Startup update check: Already running latest version ({}).", current);
    return;
  }
  if (order != kNewer) {
    log_.LogInfo(
        "Startup update check: Current version ({}) is newer than API reports "
        "({}). No update needed.",
        current, latest);
    return;
  }
  log_.LogWarn(
      "Startup update check: Newer version available! Current: {}, Latest: {}. "
      "Updating before monitoring starts.",
      current, latest);
  if (!services_.disk_space.CheckDiskSpace(places_.target_directory, /*verbose=*/true)) {
    log_.LogWarn("Startup update check: Insufficient disk space for update. Skipping.");
    return;
  }
  if (!RunSequence(latest)) {
    log_.LogWarn(
        "Startup update: Update sequence did not fully succeed. Proceeding with current version.");
  } else if (state_.g_terminateMonitoring.load()) {
    log_.LogInfo("Startup update: New VOSK launched. Exiting this instance.");
  }
}

void CoreUpdate::CheckPeriodically(SupervisorState::SteadyTime now, bool core_runs) {
  const bool fetched = now - state_.last_update_check_time >= kUpdateCheckInterval;
  if (fetched) {
    state_.last_update_check_time = now;
    if (FetchVersion().empty()) {
      log_.LogWarn("Failed to fetch latest version. Skipping update check.");
    }
  }
  const std::string latest = state_.last_fetched_version;
  const std::string current = services_.core_version.Current();
  if (latest.empty() || current == install::kUnknownVersion) return;
  if (state_.update_in_progress.load() || state_.restart_in_progress.load()) return;
  const int order = net::CompareVersions(latest, current);
  if (order == net::kUnreadableVersion) return;
  if (!services_.disk_space.CheckDiskSpace(places_.target_directory, /*verbose=*/false)) return;
  if (order != kNewer) {
    if (fetched) log_.LogInfo("Current version {} is up-to-date.", current);
    return;
  }
  log_.LogInfo("Sufficient disk space available. Proceeding with update.");
  log_.LogWarn("Newer version detected! Current: {}, Latest: {}. Initiating self-update sequence.",
               current, latest);
  state_.update_in_progress.store(true);
  ValidateState(core_runs);
  if (!RunSequence(latest)) {
    log_.LogError("Update sequence did not complete successfully or failed to launch new VOSK.");
  }
}

void CoreUpdate::ForceReinstall() {
  if (state_.update_in_progress.load()) {
    log_.LogWarn("Menu: An update is already in progress.");
    return;
  }
  log_.LogWarn("Menu: Force reinstall of VELDRAN Core requested.");
  // Not kept: an answer given here must not set off an update by itself.
  const std::string latest = services_.version_service.FetchVersion();
  if (latest.empty()) {
    log_.LogError("Menu: Could not fetch latest version from network. Reinstall aborted.");
    return;
  }
  log_.LogInfo("Menu: Latest version reported by network: {}", latest);
  if (!RunSequence(latest)) {
    log_.LogError("Menu: Force reinstall failed. Will continue with current installation.");
  }
}

bool CoreUpdate::RunSequence(const std::string& version) {
  state_.update_in_progress.store(true);
  const bool success = services_.self_update.Run({
      .expected_version = version,
      .dump_storage_directory = places_.dump_storage_directory,
      .core_directory = places_.target_directory,
      .log_root_directory = places_.log_root_directory,
      .end_core =
          [this] {
            return CoreEndForUpdate(host_.processes, log_, services_.processes)
                .EndCore(state_.target_pid, state_.hTargetProcess, state_.hProcDump);
          },
  });
  state_.update_in_progress.store(false);
  // A Core that the sequence has let go of is looked for, or launched, by the next cycle.
  if (!state_.hTargetProcess) state_.ForgetCore(log_.ConsoleLock());
  return success;
}

void CoreUpdate::ValidateState(bool core_runs) {
  log_.LogInfo("Pre-Update Validation: Verifying state before proceeding...");
  if (!core_runs || state_.target_pid == 0) {
    log_.LogInfo(
        "Pre-Update: Target process not currently running. Update will proceed without termination "
        "step.");
    state_.hProcDump.Reset();
    state_.ForgetCore(log_.ConsoleLock());
    return;
  }
  // Neither of the two words of aborting below aborts: the sequence judges the state for itself.
  if (!state_.hTargetProcess && !ReopenCore()) return;
  const platform::ProcessId pid = state_.target_pid;
  if (services_.processes.IsProcessAlive(pid)) {
    log_.LogInfo("Pre-Update: Target process PID {} confirmed running.", pid);
    ValidateMonitor();
    return;
  }
  log_.LogError("Pre-Update Error: Target process PID {} is no longer running. Aborting update.",
                pid);
  state_.hProcDump.Reset();
  state_.ForgetCore(log_.ConsoleLock());
}

bool CoreUpdate::ReopenCore() {
  const platform::ProcessId pid = state_.target_pid;
  log_.LogWarn(
      "Pre-Update Warning: hTargetProcess handle is invalid. Attempting to re-open PID: {}", pid);
  auto process =
      host_.processes.Open(platform::access::kSynchronize | platform::access::kQueryInformation |
                               platform::access::kTerminate,
                           pid);
  if (!process) {
    log_.LogError(
        "Pre-Update Error: Failed to re-open handle for target PID {}. Error: {}. "
        "Aborting update.",
        pid, process.error());
    return false;
  }
  state_.hTargetProcess = std::move(*process);
  log_.LogInfo("Pre-Update: Successfully re-opened handle for target PID {}", pid);
  return true;
}

void CoreUpdate::ValidateMonitor() {
  if (!state_.hProcDump) {
    log_.LogWarn(
        "Pre-Update Warning: hProcDump handle is invalid or ProcDump wasn't running. Update will "
        "proceed without terminating it.");
    return;
  }
  const auto pid = host_.processes.Id(state_.hProcDump);
  if (!pid) {
    log_.LogWarn("Pre-Update Warning: Could not get PID for hProcDump handle. Error: {}",
                 pid.error());
    return;
  }
  if (!services_.processes.IsProcessAlive(*pid)) {
    log_.LogWarn("Pre-Update Warning: ProcDump process (PID: {}) is no longer running.", *pid);
    state_.hProcDump.Reset();
    return;
  }
  log_.LogInfo("Pre-Update: ProcDump process (PID: {}) confirmed running.", *pid);
}

}  // namespace vosk::supervisor
