#include "install/successor.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <vector>

#include "identity.h"
#include "install/core_package.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "text/formatters.h"

namespace vosk::install {
namespace {

constexpr int kAppearanceChecks = 5;
constexpr std::chrono::seconds kAppearancePause{1};
// A query such as "VOSK.exe -version" is gone by then.
constexpr std::chrono::seconds kTimeToStay{2};
constexpr int kChecksToStay = kTimeToStay / kAppearancePause;

std::vector<platform::ProcessId> Vanished(const std::map<platform::ProcessId, int>& seen,
                                          const process::ProcessList& others) {
  std::vector<platform::ProcessId> vanished;
  for (const auto& [pid, times] : seen) {
    if (std::ranges::find(others, pid) == others.end()) vanished.push_back(pid);
  }
  return vanished;
}

}  // namespace

Successor::Successor(const platform::Host& host, console::LogSink& log,
                     process::ProcessControl& processes)
    : host_(host), log_(log), processes_(processes) {}

bool Successor::HandOver(const std::filesystem::path& core_directory) {
  log_.LogInfo("Update Step 7b/7: Checking for/launching new VOSK instance...");
  const auto executable = Find(core_directory);
  if (!executable) {
    log_.LogError("Update: New VOSK executable not found after install at: {}. Cannot relaunch.",
                  core_directory / identity::kSupervisorExecutable);
    return false;
  }
  return Appears() || Launch(*executable);
}

std::optional<std::filesystem::path> Successor::Find(const std::filesystem::path& core_directory) {
  // A Core in VOSK's own folder is not the one that was installed, and VOSK.exe there is away.
  for (const auto& directory : {core_directory, InstalledCore().parent_path()}) {
    auto executable = directory / identity::kSupervisorExecutable;
    if (host_.files.Exists(executable).value_or(false)) return executable;
  }
  return std::nullopt;
}

bool Successor::Appears() {
  log_.LogInfo("Update: Waiting 5 seconds for MSI to potentially auto-launch new VOSK...");
  std::map<platform::ProcessId, int> seen;  // how often, of those that are still there
  for (int check = 1; check <= kAppearanceChecks || !seen.empty(); ++check) {
    host_.clock.SleepFor(kAppearancePause);
    const process::ProcessList others = Others();
    for (const platform::ProcessId pid : Vanished(seen, others)) {
      log_.LogWarn("Update: Another {} process (PID: {}) did not stay and is no new version.",
                   text::WideToUtf8(identity::kSupervisorExecutable), pid);
      seen.erase(pid);
    }
    for (const platform::ProcessId pid : others) {
      if (check > kAppearanceChecks && seen.count(pid) == 0) continue;
      if (++seen[pid] <= kChecksToStay) continue;
      log_.LogWarn("Update: Detected another {} process. Assuming new version.",
                   text::WideToUtf8(identity::kSupervisorExecutable));
      log_.LogWarn("Update: Exiting old VOSK to allow new instance to run.");
      return true;
    }
  }
  return false;
}

process::ProcessList Successor::Others() {
  auto found = processes_.FindTargetProcessesByName(identity::kSupervisorExecutable);
  std::erase(found, host_.processes.OwnId());
  return found;
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
  // One that cannot work ends at once: without its libraries, or because it cannot end this one.
  // One that works as a rule ends this one while it waits here, and tidies up after it.
  if (host_.processes.WaitFor(started->handle, kTimeToStay) == platform::WaitOutcome::finished) {
    log_.LogError("Update: NEW VOSK (PID: {}) ended within {} seconds of its launch!", started->pid,
                  kTimeToStay.count());
    return false;
  }
  return true;
}

}  // namespace vosk::install
