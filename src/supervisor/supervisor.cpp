#include "supervisor/supervisor.h"

#include <fmt/format.h>

#include <memory>
#include <random>

#include "console/boot_animation.h"
#include "console/colours.h"
#include "hostsettings/crash_dialogs.h"
#include "identity.h"
#include "install/self_update.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/system.h"
#include "report/report_archive.h"
#include "supervisor/core_update.h"
#include "supervisor/diagnostic_report.h"
#include "supervisor/graceful_restart.h"
#include "supervisor/host_info_self_test.h"
#include "supervisor/menu_actions.h"
#include "supervisor/monitoring_loop.h"
#include "supervisor/startup_places.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

using platform::StandardStream;

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr std::uint32_t kTerminatedExitCode = 0;
constexpr std::string_view kBannerRule = "----------------------------------------------------";
static_assert(kBannerRule.size() == 52);
constexpr std::string_view kRule = "-------------------------------------------------------";
static_assert(kRule.size() == 55);

bool IsVersionQuery(const std::vector<std::string>& arguments) {
  return !arguments.empty() &&
         (arguments[0] == "-version" || arguments[0] == "--version" || arguments[0] == "-v");
}

// Runs an action when the scope ends.
template <typename Action>
class AtScopeEnd {
 public:
  explicit AtScopeEnd(Action action) : action_(std::move(action)) {}
  AtScopeEnd(const AtScopeEnd&) = delete;
  AtScopeEnd& operator=(const AtScopeEnd&) = delete;
  ~AtScopeEnd() { action_(); }

 private:
  Action action_;
};

}  // namespace

Supervisor::Supervisor(const platform::Host& host, Network& network)
    : host_(host),
      network_(network),
      log_(host.console, host.files, host.system, host.clock, state_.menu_visible),
      screen_(host.console, log_),
      core_version_(host.files, log_),
      status_bar_(host.console, log_, progress_, [this] { return Status(); }),
      processes_(host.processes, log_),
      host_info_(host, log_,
                 {.vosk_version = std::string(identity::kVersion),
                  .core_version = core_version_.Current(),
                  .core_modules = state_.captured_modules}) {}

console::StatusSnapshot Supervisor::Status() const {
  console::StatusSnapshot status{.core_pid = state_.target_pid,
                                 .core_version = core_version_.Current(),
                                 .crash_count = state_.crash_count,
                                 .uptime = std::nullopt,
                                 .red_alert = state_.red_alert_mode.load()};
  if (state_.target_launch_time != SupervisorState::SteadyTime{}) {
    status.uptime = host_.clock.SteadyNow() - state_.target_launch_time;
  }
  return status;
}

int Supervisor::Run(const std::vector<std::string>& arguments) {
  PrepareConsole();
  if (IsVersionQuery(arguments)) {
    PrintVersions();
    return kSuccess;
  }
  if (!ClearTheField()) return kFailure;
  OpenConsoleAndLog();
  LogBanner();
  hostsettings::CrashDialogs crash_dialogs(host_.registry, log_);
  crash_dialogs.SuppressWerDialog();
  crash_dialogs.DisableJitDebugger();
  processes_.EnableDebugPriv();
  if (!arguments.empty()) LogArguments(arguments);
  return RunWithNetwork();
}

void Supervisor::PrepareConsole() {
  // Failures here only cost looks, and the log is not open yet.
  static_cast<void>(host_.console.SetOutputCodePage(platform::kUtf8CodePage));
  if (const auto mode = host_.console.Mode(StandardStream::output)) {
    static_cast<void>(host_.console.SetMode(StandardStream::output,
                                            *mode | platform::kVirtualTerminalProcessing));
  }
}

void Supervisor::PrintVersions() {
  std::string core_version;
  if (const auto roaming = host_.system.RoamingAppDataPath()) {
    core_version = install::ReadCoreVersionFile(host_.files, LogRootBelow(*roaming));
  }
  if (core_version.empty() || core_version == "0.0.0") {
    core_version = "Not installed or version file not found";
  }
  host_.console.Write(
      StandardStream::output,
      fmt::format("VOSK (Vigilant Oversight & Supervision Kit) v{}\nVELDRAN Core: {}\n",
                  identity::kVersion, core_version));
}

bool Supervisor::ClearTheField() {
  if (!processes_.TerminateOtherInstances()) {
    log_.LogWarn("Could not terminate all other VOSK instances. There might be conflicts.");
    return false;
  }
  if (!processes_.TerminateProcDumpInstances()) {
    log_.LogWarn("Failed to terminate ProcDump instances.");
  }
  return true;
}

void Supervisor::OpenConsoleAndLog() {
  log_.EnableVirtualTerminal();
  log_.SetConsoleOutputValid(host_.console.HasStream(StandardStream::output));
  if (!log_.ConsoleOutputValid()) {
    log_.LogError("Failed to get console handle for TUI. TUI features disabled.");
  } else if (const auto info = host_.console.Info()) {
    console_at_start_ = *info;
  }
  log_.OpenLogFile();
  if (log_.ConsoleOutputValid()) ShowStart();
}

void Supervisor::ShowStart() {
  const auto seed = host_.clock.WallNow().time_since_epoch().count();
  std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
  console::PlayBootAnimation(host_.console, host_.clock, log_, random);
  screen_.SetupScrollRegion();
  log_.SetRedrawHook([this] { status_bar_.DrawStatusBar(); });
  status_bar_.DrawStatusBar();
}

void Supervisor::LogBanner() {
  const auto emphasis =
      fmt::format("{}{}", log_.Colour(console::kCyan), log_.Colour(console::kBold));
  const auto reset = log_.Colour(console::kReset);
  const auto rule = fmt::format("{}{}{}", emphasis, kBannerRule, reset);
  log_.LogInfo(rule);
  log_.LogInfo("{}VELDRAN Core Autonomous VOSK v{}{}{}{} Started{}", emphasis,
               log_.Colour(console::kMagenta), identity::kVersion, reset, emphasis, reset);
  log_.LogInfo(rule);
}

void Supervisor::LogArguments(const std::vector<std::string>& arguments) {
  log_.LogWarn(
      "Reporter launched with command line arguments. Arguments are ignored in monitoring mode.");
  std::string quoted;
  for (const auto& argument : arguments) quoted += fmt::format("\"{}\" ", argument);
  log_.LogInfo("Arguments received: {}", quoted);
}

int Supervisor::EndFatally(const std::string& title, const std::string& text) {
  host_.system.ShowErrorBox(title, text);
  return kFailure;
}

int Supervisor::RunWithNetwork() {
  if (const auto ready = network_.Initialize(); !ready) {
    const auto message = fmt::format("FATAL: curl_global_init() failed: {}", ready.error());
    log_.LogError(message);
    return EndFatally("Fatal Error", message + "\nThe application cannot continue.");
  }
  const AtScopeEnd clean_up([this] { network_.CleanUp(); });
  return RunWithCom();
}

int Supervisor::RunWithCom() {
  const auto com = host_.system.InitializeCom();
  if (!com && com.error() != platform::kChangedMode) {
    log_.LogError(
        "FATAL: CoInitializeEx failed with HRESULT: 0x{:x}. Cannot determine user folders.",
        com.error());
    return EndFatally("Fatal Error",
                      "Failed to initialize COM library. Cannot determine required user folders.");
  }
  const AtScopeEnd uninitialize([this, &com] {
    if (com) host_.system.UninitializeCom();
  });
  const auto downloader =
      network_.MakeDownloader(host_, log_, progress_, state_.g_terminateMonitoring);
  install::DiskSpace disk_space(host_.files, log_);
  install::StorageCleanup storage_cleanup(host_.files, host_.clock, log_, processes_);
  install::CorePackage core_package(host_.files, host_.installer, log_, *downloader);
  install::Msiexec msiexec(host_.processes, processes_);
  install::MsiInstaller msi_installer(host_, log_, progress_, core_package, msiexec);
  const Provisions provisions{.downloader = *downloader,
                              .disk_space = disk_space,
                              .storage_cleanup = storage_cleanup,
                              .core_package = core_package,
                              .msiexec = msiexec,
                              .msi_installer = msi_installer};
  Places places;
  if (const auto status = PrepareMonitoring(places, provisions)) return *status;
  Monitor(places, provisions);
  return kSuccess;
}

int Supervisor::EndInitialization(const std::string& text) {
  log_.LogError("FATAL Initialization Error: {}", text);
  return EndFatally(
      "VOSK Error",
      fmt::format("Initialization failed: {}\n\nPlease check the VOSK.log file for details.",
                  text));
}

std::optional<int> Supervisor::PrepareMonitoring(Places& places, const Provisions& provisions) {
  StartupPlaces finder(host_, log_);
  StartupProvision provision(host_, log_, provisions);
  if (const auto fixed = finder.FixDirectories(places); !fixed) {
    return EndInitialization(fixed.error());
  }
  if (const auto acquired = provision.AcquireProcDump(places); !acquired) {
    return EndInitialization(acquired.error());
  }
  provision.RemoveUpdateLeftovers(places);
  const bool target_found = finder.LocateTarget(places);
  HostInfoSelfTest(host_.clock, host_.files, log_, [this](const std::filesystem::path& path) {
    return host_info_.GenerateHostInfoFile(path);
  }).Run(places.dump_storage_directory);
  provision.WaitForDiskSpace(places);
  if (!target_found && !provision.InstallTarget(places)) {
    const auto message = fmt::format(
        "Initialization failed: Target executable '{}' not found at default or fallback location, "
        "and automatic installation failed or did not place it correctly. Cannot "
        "monitor.\n\nPlease check the VOSK.log file for details.",
        text::WideToUtf8(identity::kCoreExecutable));
    log_.LogError(message);
    return EndFatally("VOSK Error", message);
  }
  finder.LocateLogRoot(places);
  DetermineCoreVersion(places);
  LogMonitoringBanner(places);
  return std::nullopt;
}

void Supervisor::DetermineCoreVersion(const Places& places) {
  try {
    if (places.log_root_directory.empty()) {
      log_.LogWarn("Log root directory not available. Update check will assume version '0.0.0'.");
    } else if (core_version_.Read(places.log_root_directory, /*quiet=*/false).empty()) {
      log_.LogWarn(
          "Could not read current version from file or file empty. Update check will assume "
          "version "
          "'0.0.0'.");
    } else {
      return;
    }
  } catch (const std::exception& problem) {
    log_.LogError("Exception while checking current Core version: {}", problem.what());
    log_.LogWarn("Could not retrieve current Core Version. Assuming '0.0.0'.");
  }
  core_version_.Set(std::string(install::kUnknownVersion));
}

void Supervisor::LogMonitoringBanner(const Places& places) {
  const std::string log_source =
      places.log_root_directory.empty()
          ? fmt::format("{}N/A (Not Found/Accessible){}", log_.Colour(console::kYellow),
                        log_.Colour(console::kReset))
          : text::PathToUtf8(places.log_root_directory);
  log_.LogInfo("------------------ Monitoring Active -------------------");
  log_.LogInfo("Target Process: {}", places.target_path);
  log_.LogInfo("Target Directory: {}", places.target_directory);
  log_.LogInfo("Log Source Dir: {}", log_source);
  log_.LogInfo("Dump Storage Dir: {}", places.dump_storage_directory);
  log_.LogInfo("Monitoring Interval: {} ms", kMonitoringInterval.count());
  log_.LogInfo("Press Ctrl+C in console (if visible) to stop monitoring.");
  log_.LogInfo(kRule);
}

void Supervisor::Monitor(const Places& places, const Provisions& provisions) {
  dumps::DumpCapture dump_capture(host_, log_, state_.red_alert_mode);
  report::ReportArchive archive(host_.files, host_.system, host_.clock, log_, progress_);
  const auto uploader = network_.MakeUploader(host_, log_, progress_);
  CrashProcessing crash_processing(host_.files, log_, host_info_, archive, *uploader,
                                   state_.red_alert_mode);
  DiagnosticReport diagnostic_report(host_.files, log_, dump_capture, host_info_, archive,
                                     *uploader, state_.red_alert_mode);
  GracefulRestart restart(host_.processes, log_, processes_, state_);
  const auto version_service = network_.MakeVersionService(log_);
  install::SelfUpdate self_update(host_, log_, processes_, provisions.core_package,
                                  provisions.msiexec, core_version_, state_.g_terminateMonitoring);
  CoreUpdate update(host_, log_,
                    {.version_service = *version_service,
                     .self_update = self_update,
                     .disk_space = provisions.disk_space,
                     .core_version = core_version_,
                     .processes = processes_},
                    places, state_);
  MenuActions menu(host_.console, log_, screen_,
                   {.dump_capture = dump_capture,
                    .core_version = core_version_,
                    .restart = restart,
                    .diagnostic_report = diagnostic_report,
                    .update = update},
                   places, state_);
  MonitoringLoop loop(host_, log_,
                      {.screen = screen_,
                       .status_bar = status_bar_,
                       .core_version = core_version_,
                       .processes = processes_,
                       .dump_capture = dump_capture,
                       .host_info = host_info_,
                       .crash_processing = crash_processing,
                       .restart = restart,
                       .menu = menu,
                       .disk_space = provisions.disk_space,
                       .msi_installer = provisions.msi_installer,
                       .update = update},
                      places, state_);
  update.CheckAtStartup();
  loop.Run();
  ShutDown();
}

void Supervisor::ReleaseConsole() {
  if (console_at_start_) {
    static_cast<void>(host_.console.SetTextAttributes(console_at_start_->attributes));
  }
  log_.SetRedrawHook({});
  screen_.Release();
  static_cast<void>(host_.console.SetCursor(0, 0));
  static_cast<void>(host_.console.SetCursorVisible(true));
  // The last lines follow one another from the top: no row is laid out for them any more.
  log_.SetConsoleOutputValid(false);
}

void Supervisor::ShutDown() {
  if (log_.ConsoleOutputValid()) ReleaseConsole();
  log_.LogWarn("Monitoring loop terminated (g_terminateMonitoring is true).");
  if (state_.hProcDump) {
    log_.LogInfo("Terminating active ProcDump monitor process during shutdown...");
    processes_.TerminateProcessL(state_.hProcDump, kTerminatedExitCode);
    state_.hProcDump.Reset();
  }
  if (state_.hTargetProcess) {
    log_.LogInfo("Terminating monitored target process (if still running) during shutdown...");
    processes_.TerminateProcessL(state_.hTargetProcess, kTerminatedExitCode);
    state_.hTargetProcess.Reset();
  }
  log_.LogInfo("VELDRAN Core Autonomous VOSK shutting down.");
  log_.LogInfo(kBannerRule);
}

}  // namespace vosk::supervisor
