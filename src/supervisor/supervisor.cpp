#include "supervisor/supervisor.h"

#include <fmt/format.h>

#include <random>

#include "console/boot_animation.h"
#include "console/colours.h"
#include "hostsettings/crash_dialogs.h"
#include "identity.h"
#include "install/core_version.h"
#include "platform/clock.h"
#include "platform/system.h"
#include "supervisor/monitoring_loop.h"
#include "supervisor/places.h"
#include "supervisor/start_up.h"

namespace vosk::supervisor {
namespace {

using platform::StandardStream;

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr std::string_view kBannerRule = "----------------------------------------------------";
static_assert(kBannerRule.size() == 52);

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
    : services_(host, network),
      host_(services_.host),
      log_(services_.log),
      console_settings_(host_.console) {}

int Supervisor::Run(const std::vector<std::string>& arguments) {
  console_settings_.Prepare();
  // After a shutdown there is nothing left to do; any other end leaves its reason on the screen.
  const AtScopeEnd release_console([this] { ReleaseConsole(/*with_recent_lines=*/true); });
  try {
    return RunToTheEnd(arguments);
  } catch (const std::exception& problem) {
    // Whoever started VOSK sees the status and may start it again; the Core goes on meanwhile.
    log_.LogError("FATAL: VOSK ends because of an unexpected exception: {}", problem.what());
    return kFailure;
  }
}

int Supervisor::RunToTheEnd(const std::vector<std::string>& arguments) {
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
  services_.processes.EnableDebugPriv();
  if (!arguments.empty()) LogArguments(arguments);

  if (const auto ready = services_.network.Initialize(); !ready) {
    const auto message = fmt::format("FATAL: curl_global_init() failed: {}", ready.error());
    log_.LogError(message);
    return EndFatally(message + "\nThe application cannot continue.");
  }
  const AtScopeEnd close_network([this] { services_.network.CleanUp(); });
  const auto com = host_.system.InitializeCom();
  if (!com && com.error() != platform::kChangedMode) {
    log_.LogError(
        "FATAL: CoInitializeEx failed with HRESULT: 0x{:x}. Cannot determine user folders.",
        com.error());
    return EndFatally("Failed to initialize COM library. Cannot determine required user folders.");
  }
  const AtScopeEnd uninitialize_com([&] {
    if (com) host_.system.UninitializeCom();
  });
  if (!StartUp(services_).Run()) {
    return services_.state.g_terminateMonitoring.load() ? kSuccess : kFailure;
  }
  services_.update_schedule.CheckAtStartup();
  MonitoringLoop(services_).Run();
  ShutDown();
  return services_.state.failed ? kFailure : kSuccess;
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
  if (!services_.processes.TerminateOtherInstances()) {
    log_.LogWarn("Could not terminate all other VOSK instances. There might be conflicts.");
    return false;
  }
  if (!services_.processes.TerminateProcDumpInstances()) {
    log_.LogWarn("Failed to terminate ProcDump instances.");
  }
  return true;
}

void Supervisor::OpenConsoleAndLog() {
  log_.EnableVirtualTerminal();
  log_.SetConsoleOutputValid(host_.console.HasStream(StandardStream::output));
  if (!log_.ConsoleOutputValid()) {
    log_.LogError("Failed to get console handle for TUI. TUI features disabled.");
  }
  log_.OpenLogFile();
  if (log_.ConsoleOutputValid()) ShowStart();
}

void Supervisor::ShowStart() {
  const auto seed = host_.clock.WallNow().time_since_epoch().count();
  std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
  console::PlayBootAnimation(host_.console, host_.clock, log_, random);
  services_.screen.SetupScrollRegion();
  log_.SetRedrawHook([this] {
    // The loop does not follow the window while it waits for a transfer.
    if (services_.screen.FollowWindowSize()) services_.menu.RefreshMenu(/*redraw=*/true);
    services_.status_bar.DrawStatusBar();
  });
  services_.status_bar.DrawStatusBar();
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

int Supervisor::EndFatally(const std::string& text) {
  host_.system.ShowErrorBox("Fatal Error", text);
  return kFailure;
}

void Supervisor::ReleaseConsole(bool with_recent_lines) {
  console_settings_.Restore();
  if (!log_.ConsoleOutputValid()) return;
  log_.SetRedrawHook({});
  services_.screen.Release();
  if (with_recent_lines) services_.screen.PrintRecentLines();
  static_cast<void>(host_.console.SetCursorVisible(true));
  // The last lines follow one another from the top: the console is no longer laid out.
  log_.SetConsoleOutputValid(false);
}

void Supervisor::ShutDown() {
  ReleaseConsole(/*with_recent_lines=*/false);
  log_.LogWarn("Monitoring loop terminated (g_terminateMonitoring is true).");
  services_.core.EndAtShutdown();
  log_.LogInfo("VELDRAN Core Autonomous VOSK shutting down.");
  log_.LogInfo(kBannerRule);
}

}  // namespace vosk::supervisor
