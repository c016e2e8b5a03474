#include "supervisor/update_schedule.h"

#include <fmt/format.h>

#include "console/uptime.h"
#include "net/version_compare.h"
#include "platform/clock.h"
#include "supervisor/pre_update_validation.h"

namespace vosk::supervisor {
namespace {

constexpr std::chrono::minutes kUpdateCheckInterval{5};
constexpr int kNewer = 1;
// A failed update is repeated in the next cycle, then ever more seldom.
constexpr BackoffPlan kRepeats{
    .free_failures = 1, .first = std::chrono::minutes(5), .longest = std::chrono::hours(6)};

}  // namespace

UpdateSchedule::UpdateSchedule(platform::Clock& clock, console::LogSink& log,
                               process::ProcessControl& processes,
                               net::VersionService& version_service,
                               install::SelfUpdate& self_update, install::DiskSpace& disk_space,
                               const install::CoreVersion& core_version, WatchedCore& core,
                               CoreEndHandling& core_end, const Places& places,
                               SupervisorState& state)
    : clock_(clock),
      log_(log),
      processes_(processes),
      version_service_(version_service),
      self_update_(self_update),
      disk_space_(disk_space),
      core_version_(core_version),
      core_(core),
      core_end_(core_end),
      places_(places),
      state_(state),
      backoff_(kRepeats) {}

std::string UpdateSchedule::FetchVersion() {
  state_.last_fetched_version = version_service_.FetchVersion();
  return state_.last_fetched_version;
}

void UpdateSchedule::CheckAtStartup() {
  log_.LogInfo("--- Startup Update Check ---");
  const std::string latest = FetchVersion();
  const std::string& current = core_version_.Current();
  if (latest.empty()) {
    log_.LogWarn("Startup update check: Could not fetch latest version. Skipping.");
  } else if (current == install::kUnknownVersion) {
    log_.LogInfo(
        "Startup update check: Current version unknown (0.0.0). Skipping update to avoid reinstall "
        "before first run.");
  } else {
    UpdateAtStartup(latest);
  }
  state_.last_update_check_time = clock_.SteadyNow();
  log_.LogInfo("--- Startup Update Check Complete ---");
}

void UpdateSchedule::UpdateAtStartup(const std::string& latest) {
  const std::string current = core_version_.Current();
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
  if (!disk_space_.CheckDiskSpace(places_.target_directory, /*verbose=*/true)) {
    log_.LogWarn("Startup update check: Insufficient disk space for update. Skipping.");
    return;
  }
  if (!RunSequence(latest)) {
    log_.LogWarn(
        "Startup update: Update sequence did not fully succeed. Proceeding with current version.");
    PutOff(latest);
  } else if (state_.g_terminateMonitoring.load()) {
    log_.LogInfo("Startup update: New VOSK launched. Exiting this instance.");
  }
}

void UpdateSchedule::CheckPeriodically(SupervisorState::SteadyTime now, bool core_runs) {
  const bool fetched = now - state_.last_update_check_time >= kUpdateCheckInterval;
  if (fetched) {
    state_.last_update_check_time = now;
    if (FetchVersion().empty()) {
      log_.LogWarn("Failed to fetch latest version. Skipping update check.");
    }
  }
  const std::string latest = state_.last_fetched_version;
  const std::string current = core_version_.Current();
  if (latest.empty() || current == install::kUnknownVersion) return;
  if (state_.update_in_progress.load() || state_.restart_in_progress.load()) return;
  const int order = net::CompareVersions(latest, current);
  if (order == net::kUnreadableVersion) return;
  if (!disk_space_.CheckDiskSpace(places_.target_directory, /*verbose=*/false)) return;
  if (order != kNewer) {
    if (fetched) log_.LogInfo("Current version {} is up-to-date.", current);
    return;
  }
  if (latest == failed_version_ && now < next_attempt_) return;
  log_.LogInfo("Sufficient disk space available. Proceeding with update.");
  log_.LogWarn("Newer version detected! Current: {}, Latest: {}. Initiating self-update sequence.",
               current, latest);
  state_.update_in_progress.store(true);
  ValidateBeforeUpdate(core_, core_end_, processes_, log_, core_runs);
  if (!RunSequence(latest)) {
    log_.LogError("Update sequence did not complete successfully or failed to launch new VOSK.");
    PutOff(latest);
  }
}

void UpdateSchedule::ForceReinstall() {
  if (state_.update_in_progress.load()) {
    log_.LogWarn("Menu: An update is already in progress.");
    return;
  }
  log_.LogWarn("Menu: Force reinstall of VELDRAN Core requested.");
  // This answer is not kept, because it must not trigger an update by itself.
  const std::string latest = version_service_.FetchVersion();
  if (latest.empty()) {
    log_.LogError("Menu: Could not fetch latest version from network. Reinstall aborted.");
    return;
  }
  log_.LogInfo("Menu: Latest version reported by network: {}", latest);
  failed_version_.clear();
  if (!RunSequence(latest)) {
    log_.LogError("Menu: Force reinstall failed. Will continue with current installation.");
  }
}

void UpdateSchedule::PutOff(const std::string& version) {
  if (version != failed_version_) backoff_.Reset();
  failed_version_ = version;
  const auto wait = backoff_.Fail();
  next_attempt_ = clock_.SteadyNow() + wait;
  if (wait.count() == 0 || state_.g_terminateMonitoring.load()) return;
  log_.LogWarn("Updating to version {} has failed {} times. The next attempt is due in {}.",
               version, backoff_.Failures(), console::FormatUptime(wait));
}

bool UpdateSchedule::EndCore() {
  // A Core that has ended by itself meanwhile has something to report.
  if (core_.IsHeld() && !core_.IsRunning()) core_end_.HandleCoreEnd();
  return core_.EndForUpdate();
}

bool UpdateSchedule::RunSequence(const std::string& version) {
  state_.update_in_progress.store(true);
  const bool success = self_update_.Run({
      .expected_version = version,
      .dump_storage_directory = places_.dump_storage_directory,
      .core_directory = places_.target_directory,
      .log_root_directory = places_.log_root_directory,
      .end_core = [this] { return EndCore(); },
  });
  state_.update_in_progress.store(false);
  // If the update has let go of the Core, the next cycle finds it or launches one.
  if (!core_.IsHeld()) core_.Forget();
  // VOSK.exe could not be put back in its place.
  if (!success && state_.g_terminateMonitoring.load()) state_.failed = true;
  return success;
}

}  // namespace vosk::supervisor
