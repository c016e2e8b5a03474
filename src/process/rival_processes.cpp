#include "process/rival_processes.h"

#include <fmt/format.h>

#include <chrono>
#include <functional>
#include <optional>

#include "identity.h"
#include "process/process_end.h"
#include "process/process_search.h"
#include "process/process_walk.h"
#include "text/utf.h"

namespace vosk::process {
namespace {

constexpr std::uint32_t kTerminationAccess = platform::access::kSynchronize |
                                             platform::access::kQueryInformation |
                                             platform::access::kTerminate;
constexpr std::chrono::milliseconds kRivalExitWait{500};
constexpr std::uint32_t kTerminatedExitCode = 1;

// A later start that lies further ahead is that of a clock which has been set back meanwhile: this
// one has only just started.
constexpr std::chrono::minutes kSameMoment{1};

// What became of a process that has to go.
enum class Rival { signalled, gone, spared, stays };

using NameRule = std::function<bool(std::u16string_view)>;

bool IsSupervisor(std::u16string_view name) {
  return text::ToLowerAscii(name) == text::ToLowerAscii(identity::kSupervisorExecutable);
}

bool IsProcDump(std::u16string_view name) {
  return text::ToLowerAscii(name).starts_with(u"procdump");
}

// Whether a process that is held open by now, and so keeps its number, still has such a name.
// Nothing if the list cannot be read. The list is asked, because it alone goes on naming an
// executable as it was started when that has been renamed, as an update does.
std::optional<bool> IsStillNamed(platform::ProcessId pid, const NameRule& rule,
                                 platform::Processes& processes) {
  bool named = false;
  const auto failure = WalkProcesses(processes, [&](const platform::ProcessEntry& entry) {
    named |= entry.pid == pid && rule(entry.executable_name);
  });
  if (failure && !named) return std::nullopt;
  return named;
}

// Whether the other supervisor was started later, or has the better right of two started at once.
bool HasPrecedence(const platform::ProcessHandle& other, platform::ProcessId pid,
                   platform::Processes& processes) {
  const platform::ProcessId own_pid = processes.OwnId();
  const auto self = processes.Open(platform::access::kQueryLimitedInformation, own_pid);
  if (!self) return false;
  const auto own_start = processes.StartTime(*self);
  const auto start = processes.StartTime(other);
  if (!own_start || !start) return false;
  if (*start == *own_start) return pid < own_pid;
  return *start > *own_start && *start - *own_start < kSameMoment;
}

Rival TerminateOtherInstance(platform::ProcessId pid, platform::Processes& processes,
                             console::LogSink& log) {
  log.LogWarn("Attempting to terminate other VOSK instance with PID: {}", pid);
  const auto process = processes.Open(kTerminationAccess, pid);
  if (!process) {
    log.LogError("Failed to open other VOSK process (PID: {}) for termination. Error: {}", pid,
                 process.error());
    // A process that has ended meanwhile is what we want.
    return process.error() == platform::kInvalidParameter ? Rival::gone : Rival::stays;
  }
  const auto named = IsStillNamed(pid, IsSupervisor, processes);
  if (!named) {
    log.LogError("Failed to look again at other VOSK process (PID: {}) before its termination.",
                 pid);
    return Rival::stays;
  }
  if (!*named) {
    log.LogInfo("Other VOSK process (PID: {}) has ended by itself.", pid);
    return Rival::gone;
  }
  if (HasPrecedence(*process, pid, processes)) {
    log.LogInfo("Other VOSK process (PID: {}) was started later. Leaving it alone.", pid);
    return Rival::spared;
  }
  const auto terminated = TerminateProcessL(*process, kTerminatedExitCode, processes, log);
  if (!terminated) {
    log.LogError("Failed to terminate other VOSK process (PID: {}). Error: {}", pid,
                 terminated.error());
    // A process that was ending by itself cannot be ended any more.
    const auto outcome = processes.WaitFor(*process, kRivalExitWait);
    return outcome == platform::WaitOutcome::finished ? Rival::gone : Rival::stays;
  }
  log.LogInfo(
      "Successfully signaled termination for other VOSK instance (PID: {}). Waiting briefly...",
      pid);
  // Nothing depends on the outcome: an instance that lingers is already on its way out.
  static_cast<void>(processes.WaitFor(*process, kRivalExitWait));
  return Rival::signalled;
}

// Appends the running monitors to `found`.
std::optional<WalkFailure> CollectProcDumpInstances(platform::Processes& processes,
                                                    console::LogSink& log, ProcessList& found) {
  const platform::ProcessId own_pid = processes.OwnId();
  return WalkProcesses(processes, [&](const platform::ProcessEntry& entry) {
    if (!IsProcDump(entry.executable_name)) return;
    if (entry.pid == own_pid) return;
    log.LogInfo(u"TerminateProcDumpInstances: Found matching process: " + entry.executable_name +
                text::Utf8ToUtf16(fmt::format(" (PID: {})", entry.pid)));
    found.push_back(entry.pid);
  });
}

constexpr WalkTexts kProcDumpWalkTexts{
    .snapshot = "TerminateProcDumpInstances: CreateToolhelp32Snapshot failed. Error: ",
    .first_entry = "TerminateProcDumpInstances: Process32FirstW failed. Error: ",
    .next_entry = "TerminateProcDumpInstances: Process32NextW failed during enumeration. Error: "};

Rival TerminateProcDumpInstance(platform::ProcessId pid, platform::Processes& processes,
                                console::LogSink& log) {
  const auto process = processes.Open(kTerminationAccess, pid);
  if (!process) {
    if (process.error() == platform::kInvalidParameter) {
      log.LogInfo("TerminateProcDumpInstances: Process PID {} likely already exited.", pid);
      return Rival::gone;
    }
    log.LogError("TerminateProcDumpInstances: Failed to open process PID {}. Error: {}", pid,
                 process.error());
    return Rival::stays;
  }
  const auto named = IsStillNamed(pid, IsProcDump, processes);
  if (!named) {
    log.LogError("TerminateProcDumpInstances: Failed to look again at process PID {}.", pid);
    return Rival::stays;
  }
  if (!*named) {
    log.LogInfo("TerminateProcDumpInstances: Process PID {} likely already exited.", pid);
    return Rival::gone;
  }
  if (!TerminateProcessL(*process, kTerminatedExitCode, processes, log)) {
    log.LogError(
        "TerminateProcDumpInstances: Failed to terminate process PID {} using TerminateProcessL.",
        pid);
    return Rival::stays;
  }
  log.LogInfo("TerminateProcDumpInstances: Termination signal sent successfully to PID {}.", pid);
  return Rival::signalled;
}

// `complete` says whether the list of monitors was read to its end. Returns false if it was not, or
// if a monitor could not be ended.
bool TerminateMonitors(const ProcessList& found, bool complete, platform::Processes& processes,
                       console::LogSink& log) {
  log.LogInfo("TerminateProcDumpInstances: Attempting termination for {} found process(es)...",
              found.size());
  bool all_signalled = complete;
  std::size_t attempts = 0;
  for (const platform::ProcessId pid : found) {
    const Rival rival = TerminateProcDumpInstance(pid, processes, log);
    if (rival == Rival::signalled) ++attempts;
    if (rival == Rival::stays) all_signalled = false;
  }
  if (attempts > 0) {
    log.LogInfo("TerminateProcDumpInstances: Attempted termination for {} process(es).", attempts);
  }
  if (!all_signalled) {
    log.LogWarn("TerminateProcDumpInstances: Errors occurred during termination attempts.");
  } else if (attempts == found.size()) {
    log.LogInfo(
        "TerminateProcDumpInstances: Successfully initiated termination for all found instances.");
  } else {
    log.LogWarn(
        "TerminateProcDumpInstances: Some instances may not have been terminated successfully.");
  }
  return all_signalled;
}

}  // namespace

bool TerminateOtherInstances(platform::Processes& processes, console::LogSink& log) {
  log.LogInfo("Checking for and terminating other running VOSK instances ({})...",
              text::WideToUtf8(identity::kSupervisorExecutable));
  const platform::ProcessId own_pid = processes.OwnId();
  const ProcessList instances =
      FindTargetProcessesByName(identity::kSupervisorExecutable, processes, log);
  if (instances.empty()) {
    log.LogInfo("No other VOSK instances found running.");
    return true;
  }
  log.LogInfo("Found {} VOSK process(es). Terminating others...", instances.size());
  bool all_ended = true;
  int attempts = 0;
  for (const platform::ProcessId pid : instances) {
    if (pid == own_pid) continue;
    const Rival rival = TerminateOtherInstance(pid, processes, log);
    if (rival == Rival::signalled) ++attempts;
    if (rival == Rival::stays) all_ended = false;
  }
  if (attempts > 0) {
    log.LogInfo("Attempted to terminate {} other VOSK instance(s).", attempts);
  }
  if (!all_ended) {
    log.LogWarn("Errors occurred while trying to terminate all other VOSK instances.");
  }
  return all_ended;
}

bool TerminateProcDumpInstances(platform::Processes& processes, console::LogSink& log) {
  log.LogInfo("Checking for and terminating any running 'procdump*.exe' instances...");
  ProcessList found;
  const auto failure = CollectProcDumpInstances(processes, log, found);
  if (failure && IsEmptyList(*failure)) {
    log.LogInfo("TerminateProcDumpInstances: No processes found.");
    return true;
  }
  if (failure) {
    LogWalkFailure(*failure, kProcDumpWalkTexts, log);
    if (failure->step != WalkStep::next_entry) return false;
  }
  if (found.empty()) {
    log.LogInfo(
        "TerminateProcDumpInstances: No 'procdump*.exe' instances found running (other than "
        "potentially self).");
    return !failure;
  }
  return TerminateMonitors(found, !failure, processes, log);
}

}  // namespace vosk::process
