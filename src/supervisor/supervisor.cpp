#include "supervisor/supervisor.h"

#include <fmt/format.h>

#include <memory>

#include "console/colours.h"
#include "identity.h"
#include "install/core_version.h"
#include "platform/files.h"
#include "platform/system.h"
#include "report/report_archive.h"
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
      processes_(host.processes, log_) {}

int Supervisor::Run(const std::vector<std::string>& arguments) {
  PrepareConsole();
  if (IsVersionQuery(arguments)) {
    PrintVersions();
    return kSuccess;
  }
  if (!ClearTheField()) return kFailure;
  OpenConsoleAndLog();
  LogBanner();
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
  screen_.SetupScrollRegion();
}

void Supervisor::LogBanner() {
  const auto emphasis =
      fmt::format("{}{}", log_.Colour(console::kCyan), log_.Colour(console::kBold));
  const auto reset = log_.Colour(console::kReset);
  const auto rule = fmt::format("{}{}{}", emphasis, kBannerRule, reset);
  log_.LogInfo(rule);
  log_.LogInfo(fmt::format("{}VELDRAN Core Autonomous VOSK v{}{}{}{} Started{}", emphasis,
                           log_.Colour(console::kMagenta), identity::kVersion, reset, emphasis,
                           reset));
  log_.LogInfo(rule);
}

void Supervisor::LogArguments(const std::vector<std::string>& arguments) {
  log_.LogWarn(
      "Reporter launched with command line arguments. Arguments are ignored in monitoring mode.");
  std::string quoted;
  for (const auto& argument : arguments) quoted += fmt::format("\"{}\" ", argument);
  log_.LogInfo(fmt::format("Arguments received: {}", quoted));
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
  const platform::HResult com = host_.system.InitializeCom();
  if (com.Failed() && com != platform::kChangedMode) {
    log_.LogError(fmt::format(
        "FATAL: CoInitializeEx failed with HRESULT: 0x{:x}. Cannot determine user folders.",
        com.value));
    return EndFatally("Fatal Error",
                      "Failed to initialize COM library. Cannot determine required user folders.");
  }
  // Only a call that did not fail is balanced; in another mode COM belongs to somebody else.
  const AtScopeEnd uninitialize([this, com] {
    if (!com.Failed()) host_.system.UninitializeCom();
  });
  Places places;
  StartupPlaces finder(host_, log_);
  if (const auto fixed = finder.FixDirectories(places); !fixed) {
    log_.LogError(fmt::format("FATAL Initialization Error: {}", fixed.error()));
    return EndFatally("VOSK Error",
                      fmt::format("Initialization failed: {}\n\nPlease check the VOSK.log file for "
                                  "details.",
                                  fixed.error()));
  }
  if (!finder.LocateTarget(places)) {
    const auto message = fmt::format(
        "Initialization failed: Target executable '{}' not found at default or fallback location. "
        "Cannot monitor.\n\nPlease check the VOSK.log file for details.",
        text::WideToUtf8(identity::kCoreExecutable));
    log_.LogError(message);
    return EndFatally("VOSK Error", message);
  }
  finder.LocateLogRoot(places);
  LogMonitoringBanner(places);
  Monitor(places);
  return kSuccess;
}

void Supervisor::LogMonitoringBanner(const Places& places) {
  const std::string log_source =
      places.log_root_directory.empty()
          ? fmt::format("{}N/A (Not Found/Accessible){}", log_.Colour(console::kYellow),
                        log_.Colour(console::kReset))
          : text::PathToUtf8(places.log_root_directory);
  log_.LogInfo("------------------ Monitoring Active -------------------");
  log_.LogInfo(fmt::format("Target Process: {}", text::PathToUtf8(places.target_path)));
  log_.LogInfo(fmt::format("Target Directory: {}", text::PathToUtf8(places.target_directory)));
  log_.LogInfo(fmt::format("Log Source Dir: {}", log_source));
  log_.LogInfo(
      fmt::format("Dump Storage Dir: {}", text::PathToUtf8(places.dump_storage_directory)));
  log_.LogInfo(fmt::format("Monitoring Interval: {} ms", kMonitoringInterval.count()));
  log_.LogInfo("Press Ctrl+C in console (if visible) to stop monitoring.");
  log_.LogInfo(kRule);
}

void Supervisor::Monitor(const Places& places) {
  dumps::DumpCapture dump_capture(host_, log_, state_.red_alert_mode);
  report::ReportArchive archive(host_.files, host_.system, host_.clock, log_, progress_);
  const auto uploader = network_.MakeUploader(host_, log_, progress_);
  CrashProcessing crash_processing(host_.files, log_, archive, *uploader, state_.red_alert_mode);
  MonitoringLoop loop(host_, log_, screen_, processes_, dump_capture, crash_processing, places,
                      state_);
  loop.Run();
  ShutDown();
}

void Supervisor::ShutDown() {
  if (log_.ConsoleOutputValid()) {
    if (console_at_start_) {
      static_cast<void>(host_.console.SetTextAttributes(console_at_start_->attributes));
    }
    screen_.Release();
    static_cast<void>(host_.console.SetCursor(0, 0));
    static_cast<void>(host_.console.SetCursorVisible(true));
  }
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
