#include "install/successor.h"

#include <fmt/format.h>

#include <chrono>

#include "identity.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "text/formatters.h"

namespace vosk::install {
namespace {

constexpr int kAppearanceChecks = 5;
constexpr std::chrono::seconds kAppearancePause{1};

}  // namespace

Successor::Successor(const platform::Host& host, console::LogSink& log,
                     process::ProcessControl& processes)
    : host_(host), log_(log), processes_(processes) {}

bool Successor::HandOver(const std::filesystem::path& core_directory) {
  log_.LogInfo("Update Step 7b/7: Checking for/launching new VOSK instance...");
  const auto executable = core_directory / identity::kSupervisorExecutable;
  if (!host_.files.Exists(executable).value_or(false)) {
    log_.LogError("Update: New VOSK executable not found after install at: {}. Cannot relaunch.",
                  executable);
    return false;
  }
  return Appears() || Launch(executable);
}

bool Successor::Appears() {
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

bool Successor::Launch(const std::filesystem::path& executable) {
  log_.LogWarn("Update: New VOSK instance not detected. Attempting manual launch...");
  // It gets its own console: this one goes back to whoever started the old instance.
  const auto started = host_.processes.Start({.command_line = fmt::format("\"{}\"", executable),
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
