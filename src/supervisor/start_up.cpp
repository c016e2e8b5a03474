#include "supervisor/start_up.h"

#include <fmt/format.h>

#include "console/colours.h"
#include "files/directory_clearing.h"
#include "identity.h"
#include "install/work_directory.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/system.h"
#include "supervisor/host_info_self_test.h"
#include "supervisor/monitoring_loop.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

constexpr std::chrono::milliseconds kDiskSpacePause{1000};
// A disk that stays full is cleaned again only so often; each time fills a page of the log.
constexpr std::chrono::minutes kCleanupInterval{15};
constexpr std::uint64_t kMebibyte = 1'048'576;
constexpr std::string_view kRule = "-------------------------------------------------------";
static_assert(kRule.size() == 55);

bool IsMissing(const platform::Error& error) {
  return error == platform::kFileNotFound || error == platform::kPathNotFound;
}

constexpr CoreSearchTexts kFirstSearch{
    .at_default = {.checking = "Checking for target at default path: ",
                   .found = "Using target executable from default location.",
                   .missing = "Target executable not found at default path: "},
    .at_fallback = {.checking = "Checking fallback path: ",
                    .found = "Using target executable from fallback location.",
                    .missing = "Target executable not found at fallback path: "}};

}  // namespace

StartUp::StartUp(Services& services)
    : services_(services), host_(services.host), log_(services.log), places_(services.places) {}

bool StartUp::Run() {
  if (const auto fixed = FixDirectories(); !fixed) return EndInitialization(fixed.error());
  if (const auto acquired = AcquireProcDump(); !acquired) {
    return EndInitialization(acquired.error());
  }
  RemoveUpdateLeftovers();
  const bool target_found = LocateTarget();
  HostInfoSelfTest(host_.clock, host_.files, log_, [this](const std::filesystem::path& path) {
    return services_.host_info.GenerateHostInfoFile(path);
  }).Run(places_.dump_storage_directory);
  if (!WaitForDiskSpace()) return false;
  if (!target_found && !InstallTarget()) {
    const auto message = fmt::format(
        "Initialization failed: Target executable '{}' not found at default or fallback location, "
        "and automatic installation failed or did not place it correctly. Cannot "
        "monitor.\n\nPlease check the VOSK.log file for details.",
        text::WideToUtf8(identity::kCoreExecutable));
    log_.LogError(message);
    host_.system.ShowErrorBox("VOSK Error", message);
    return false;
  }
  LocateLogRoot();
  DetermineCoreVersion();
  LogMonitoringBanner();
  return true;
}

bool StartUp::EndInitialization(const std::string& text) {
  log_.LogError("FATAL Initialization Error: {}", text);
  host_.system.ShowErrorBox(
      "VOSK Error",
      fmt::format("Initialization failed: {}\n\nPlease check the VOSK.log file for details.",
                  text));
  return false;
}

StartUp::Step StartUp::FixDirectories() {
  const auto module = host_.system.ModulePath();
  if (!module) {
    return tl::unexpected(fmt::format("Failed to get module file name. Error: {}", module.error()));
  }
  places_.supervisor_directory = module->parent_path();
  log_.LogInfo("VOSK directory: {}", places_.supervisor_directory);
  return PrepareDumpStorage();
}

StartUp::Step StartUp::PrepareDumpStorage() {
  const auto temp = host_.system.TempPath();
  if (!temp || temp->native().size() >= platform::kMaxPath) {
    return tl::unexpected(fmt::format("Failed to get temporary path. Error: {}",
                                      temp ? platform::kSuccess : temp.error()));
  }
  const auto directory = *temp / identity::kDumpStorageName;
  places_.dump_storage_directory = directory;
  // A file of that name cannot hold dumps, and no directory can be made in its place.
  const auto type = host_.files.TypeOf(directory);
  if (type && *type == platform::FileType::directory) {
    log_.LogInfo("Using existing dump storage directory: {}", directory);
    return {};
  }
  if (const auto created = host_.files.CreateDirectories(directory); !created) {
    return tl::unexpected(fmt::format("Failed to create dump storage directory: {}, Error: {}",
                                      directory, created.error()));
  }
  log_.LogInfo("Created dump storage directory: {}", directory);
  return {};
}

StartUp::Step StartUp::AcquireProcDump() {
  if (!services_.procdump_acquisition.EnsureProcDumpExists(places_.supervisor_directory,
                                                           places_.dump_storage_directory)) {
    return tl::unexpected<std::string>(
        "ProcDump could not be found or acquired. Cannot proceed with monitoring.");
  }
  if (places_.dump_storage_directory.empty()) {
    log_.LogWarn("Dump storage directory path is invalid, cannot clear contents.");
  } else {
    services_.unsent_reports.Rescue();
    files::ClearDirectory(host_.files, host_.clock, log_, places_.dump_storage_directory);
  }
  return {};
}

void StartUp::RemoveUpdateLeftovers() {
  install::WorkDirectory leftovers(host_.files, places_.TempDirectory());
  if (!host_.files.Exists(leftovers.Path()).value_or(false)) return;
  log_.LogInfo("Removing installation directory left behind: {}", leftovers.Path());
  if (const auto removed = leftovers.Remove(); !removed) {
    log_.LogWarn("Failed to remove installation directory {}. Error: {}", leftovers.Path(),
                 removed.error());
  }
}

bool StartUp::LocateTarget() {
  return FindCore(host_.files, log_, kFirstSearch, places_);
}

bool StartUp::WaitForDiskSpace() {
  install::DiskSpace& space = services_.disk_space;
  // The Core's place is not known yet, so the current directory's volume is checked.
  const std::filesystem::path unsettled;
  std::optional<SupervisorState::SteadyTime> last_cleanup;
  while (!space.CheckDiskSpace(unsettled, /*verbose=*/!last_cleanup)) {
    const auto now = host_.clock.SteadyNow();
    if (!last_cleanup || now - *last_cleanup >= kCleanupInterval) {
      const bool room = CleanUpStorage();
      if (room && !last_cleanup) return true;
      last_cleanup = now;
      if (room) break;
      log_.LogWarn("Storage space not sufficient. Halting VOSK Operations.");
    }
    host_.clock.SleepFor(kDiskSpacePause);
    services_.menu.ReadQuitKey();
    if (services_.state.g_terminateMonitoring.load()) return false;
  }
  if (last_cleanup) log_.LogInfo("Storage space is sufficient again. Resuming VOSK Operations.");
  return true;
}

bool StartUp::CleanUpStorage() {
  log_.LogWarn("Insufficient space for update. Attempting storage cleanup...");
  const std::uint64_t freed = services_.storage_cleanup.CleanUpStorage(
      places_.dump_storage_directory, places_.TempDirectory());
  if (services_.disk_space.CheckDiskSpace({}, /*verbose=*/false)) {
    log_.LogInfo("Storage cleanup successful! Proceeding with update.");
    return true;
  }
  log_.LogError("Even after freeing {} MB, insufficient space for update. Update aborted.",
                freed / kMebibyte);
  return false;
}

bool StartUp::InstallTarget() {
  log_.LogWarn("Target executable '{}' not found. Attempting automatic installation...",
               text::WideToUtf8(identity::kCoreExecutable));
  if (!services_.msi_installer.AutomatedInstall(places_.TempDirectory())) {
    log_.LogError("Automated installation failed.");
    return false;
  }
  log_.LogInfo("Automated installation process completed. Re-checking for target executable...");
  if (FindCore(host_.files, log_, kSearchAfterInstallation, places_)) return true;
  log_.LogWarn("Target STILL not found after installation attempt.");
  return false;
}

void StartUp::LocateLogRoot() {
  const auto roaming = host_.system.RoamingAppDataPath();
  if (!roaming) {
    log_.LogError(
        "SHGetKnownFolderPath failed for RoamingAppData. HRESULT: 0x{:x}. Cannot determine log "
        "directory.",
        roaming.error());
    log_.LogWarn("Could not determine log root directory path. Logs will not be included.");
    return;
  }
  try {
    const auto log_root = LogRootBelow(*roaming);
    const auto type = host_.files.TypeOf(log_root);
    if (type && *type == platform::FileType::directory) {
      log_.LogInfo("Target log root directory found: {}", log_root);
      places_.log_root_directory = log_root;
      return;
    }
    log_.LogWarn(
        "Target log root directory does not exist or is not accessible: {}{}. Logs may not be "
        "included in crash reports.",
        log_root, type || IsMissing(type.error()) ? "" : fmt::format(" Error: {}", type.error()));
  } catch (const std::exception& problem) {
    log_.LogError("Exception constructing log root path from AppData: {}", problem.what());
    log_.LogWarn("Could not determine log root directory path. Logs will not be included.");
  }
}

void StartUp::DetermineCoreVersion() {
  install::CoreVersion& version = services_.core_version;
  try {
    if (places_.log_root_directory.empty()) {
      log_.LogWarn("Log root directory not available. Update check will assume version '0.0.0'.");
    } else if (version.Read(places_.log_root_directory, /*quiet=*/false).empty()) {
      log_.LogWarn(
          "Could not read current version from file or file empty. Update check will assume "
          "version '0.0.0'.");
    } else {
      return;
    }
  } catch (const std::exception& problem) {
    log_.LogError("Exception while checking current Core version: {}", problem.what());
    log_.LogWarn("Could not retrieve current Core Version. Assuming '0.0.0'.");
  }
  version.Set(std::string(install::kUnknownVersion));
}

void StartUp::LogMonitoringBanner() {
  const std::string log_source =
      places_.log_root_directory.empty()
          ? fmt::format("{}N/A (Not Found/Accessible){}", log_.Colour(console::kYellow),
                        log_.Colour(console::kReset))
          : text::PathToUtf8(places_.log_root_directory);
  log_.LogInfo("------------------ Monitoring Active -------------------");
  log_.LogInfo("Target Process: {}", places_.target_path);
  log_.LogInfo("Target Directory: {}", places_.target_directory);
  log_.LogInfo("Log Source Dir: {}", log_source);
  log_.LogInfo("Dump Storage Dir: {}", places_.dump_storage_directory);
  log_.LogInfo("Monitoring Interval: {} ms", kMonitoringInterval.count());
  log_.LogInfo("Press Ctrl+C in console (if visible) to stop monitoring.");
  log_.LogInfo(kRule);
}

}  // namespace vosk::supervisor
