// How ProcessControl clears the field: other supervisors and monitors left over from earlier runs.
#include <fmt/format.h>

#include "identity.h"
#include "process/process_control.h"
#include "process/process_walk.h"
#include "text/utf.h"

namespace vosk::process {
namespace {

constexpr std::uint32_t kTerminationAccess = platform::access::kSynchronize |
                                             platform::access::kQueryInformation |
                                             platform::access::kTerminate;
constexpr std::chrono::milliseconds kRivalExitWait{500};
constexpr std::uint32_t kTerminatedExitCode = 1;

}  // namespace

bool ProcessControl::TerminateOtherInstances() {
  log_.LogInfo("Checking for and terminating other running VOSK instances ({})...",
               text::WideToUtf8(identity::kSupervisorExecutable));
  const platform::ProcessId own_pid = processes_.OwnId();
  const ProcessList instances = FindTargetProcessesByName(identity::kSupervisorExecutable);
  if (instances.empty()) {
    log_.LogInfo("No other VOSK instances found running.");
    return true;
  }
  log_.LogInfo("Found {} VOSK process(es). Terminating others...", instances.size());
  bool all_ended = true;
  int attempts = 0;
  for (const platform::ProcessId pid : instances) {
    if (pid != own_pid && !TerminateOtherInstance(pid, attempts)) all_ended = false;
  }
  if (attempts > 0) {
    log_.LogInfo("Attempted to terminate {} other VOSK instance(s).", attempts);
  }
  if (!all_ended) {
    log_.LogWarn("Errors occurred while trying to terminate all other VOSK instances.");
  } else if (attempts == 0 && instances.size() > 1) {
    log_.LogWarn("Found other VOSK instances but failed to terminate any.");
  }
  return all_ended;
}

bool ProcessControl::TerminateOtherInstance(platform::ProcessId pid, int& attempts) {
  log_.LogWarn("Attempting to terminate other VOSK instance with PID: {}", pid);
  const auto process = processes_.Open(kTerminationAccess, pid);
  if (!process) {
    log_.LogError("Failed to open other VOSK process (PID: {}) for termination. Error: {}", pid,
                  process.error());
    // A process that has gone meanwhile is what we want.
    return process.error() == platform::kInvalidParameter;
  }
  if (const auto terminated = TerminateProcessL(*process, kTerminatedExitCode); !terminated) {
    log_.LogError("Failed to terminate other VOSK process (PID: {}). Error: {}", pid,
                  terminated.error());
    // A process that was ending by itself cannot be ended any more.
    const auto outcome = processes_.WaitFor(*process, kRivalExitWait);
    return outcome && *outcome == platform::WaitOutcome::finished;
  }
  log_.LogInfo(
      "Successfully signaled termination for other VOSK instance (PID: {}). Waiting briefly...",
      pid);
  // Nothing hangs on the outcome: an instance that lingers is already on its way out.
  static_cast<void>(processes_.WaitFor(*process, kRivalExitWait));
  ++attempts;
  return true;
}

// Lists the monitors that run. A verdict is given where there is no list to go on with.
std::optional<bool> ProcessControl::CollectProcDumpInstances(ProcessList& found, bool& complete) {
  const platform::ProcessId own_pid = processes_.OwnId();
  const auto failure = WalkProcesses(processes_, [&](const platform::ProcessEntry& entry) {
    if (!text::ToLowerAscii(entry.executable_name).starts_with(u"procdump")) return;
    if (entry.pid == own_pid) return;
    log_.LogInfo(u"TerminateProcDumpInstances: Found matching process: " + entry.executable_name +
                 text::Utf8ToUtf16(fmt::format(" (PID: {})", entry.pid)));
    found.push_back(entry.pid);
  });
  complete = !failure;
  if (!failure) return std::nullopt;
  switch (failure->step) {
    case WalkStep::snapshot:
      log_.LogError("TerminateProcDumpInstances: CreateToolhelp32Snapshot failed. Error: {}",
                    failure->code);
      return false;
    case WalkStep::first_entry:
      if (failure->code == platform::kNoMoreFiles) {
        log_.LogInfo("TerminateProcDumpInstances: No processes found.");
        return true;
      }
      log_.LogError("TerminateProcDumpInstances: Process32FirstW failed. Error: {}", failure->code);
      return false;
    case WalkStep::next_entry:
      log_.LogError(
          "TerminateProcDumpInstances: Process32NextW failed during enumeration. Error: {}",
          failure->code);
      break;
  }
  return std::nullopt;
}

bool ProcessControl::TerminateProcDumpInstances() {
  log_.LogInfo("Checking for and terminating any running 'procdump*.exe' instances...");
  ProcessList found;
  bool all_signalled = true;
  if (const auto verdict = CollectProcDumpInstances(found, all_signalled)) return *verdict;
  if (found.empty()) {
    log_.LogInfo(
        "TerminateProcDumpInstances: No 'procdump*.exe' instances found running (other than "
        "potentially self).");
    return all_signalled;
  }
  log_.LogInfo("TerminateProcDumpInstances: Attempting termination for {} found process(es)...",
               found.size());
  int attempts = 0;
  for (const platform::ProcessId pid : found) {
    if (!TerminateProcDumpInstance(pid, attempts)) all_signalled = false;
  }
  if (attempts > 0) {
    log_.LogInfo("TerminateProcDumpInstances: Attempted termination for {} process(es).", attempts);
  }
  if (!all_signalled) {
    log_.LogWarn("TerminateProcDumpInstances: Errors occurred during termination attempts.");
  } else if (attempts == static_cast<int>(found.size())) {
    log_.LogInfo(
        "TerminateProcDumpInstances: Successfully initiated termination for all found instances.");
  } else {
    log_.LogWarn(
        "TerminateProcDumpInstances: Some instances may not have been terminated successfully.");
  }
  return all_signalled;
}

bool ProcessControl::TerminateProcDumpInstance(platform::ProcessId pid, int& attempts) {
  const auto process = processes_.Open(kTerminationAccess, pid);
  if (!process) {
    if (process.error() == platform::kInvalidParameter) {
      log_.LogInfo("TerminateProcDumpInstances: Process PID {} likely already exited.", pid);
      return true;
    }
    log_.LogError("TerminateProcDumpInstances: Failed to open process PID {}. Error: {}", pid,
                  process.error());
    return false;
  }
  if (!TerminateProcessL(*process, kTerminatedExitCode)) {
    log_.LogError(
        "TerminateProcDumpInstances: Failed to terminate process PID {} using TerminateProcessL.",
        pid);
    return false;
  }
  log_.LogInfo("TerminateProcDumpInstances: Termination signal sent successfully to PID {}.", pid);
  ++attempts;
  return true;
}

}  // namespace vosk::process
