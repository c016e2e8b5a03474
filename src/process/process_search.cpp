#include "process/process_search.h"

#include <optional>

#include "identity.h"
#include "process/process_walk.h"
#include "text/utf.h"

namespace vosk::process {
namespace {

// Runs the walk and appends every process with the wanted name, in any letter case, to `found`.
std::optional<WalkFailure> CollectByName(platform::Processes& processes, std::u16string_view name,
                                         ProcessList& found) {
  const std::u16string wanted = text::ToLowerAscii(name);
  auto failure = WalkProcesses(processes, [&](const platform::ProcessEntry& entry) {
    if (text::ToLowerAscii(entry.executable_name) == wanted) found.push_back(entry.pid);
  });
  return failure && IsEmptyList(*failure) ? std::nullopt : failure;
}

}  // namespace

ProcessList FindTargetProcessesByName(std::u16string_view name, platform::Processes& processes,
                                      console::LogSink& log) {
  ProcessList found;
  if (name.empty()) {
    log.LogError("FindTargetProcessesByName: Provided target name is empty.");
    return found;
  }
  const auto failure = CollectByName(processes, name, found);
  if (!failure) return found;
  switch (failure->step) {
    case WalkStep::snapshot:
      log.LogError("FindTargetProcessesByName: CreateToolhelp32Snapshot failed. Error: {}",
                   failure->code);
      break;
    case WalkStep::first_entry:
      log.LogError("FindTargetProcessesByName: Process32FirstW failed. Error: {}", failure->code);
      break;
    case WalkStep::next_entry:
      log.LogError("FindTargetProcessesByName: Process32NextW failed during enumeration. Error: {}",
                   failure->code);
      break;
  }
  return found;
}

ProcessList FindCoreProcesses(platform::Processes& processes, console::LogSink& log) {
  ProcessList found;
  const auto failure = CollectByName(processes, identity::kCoreExecutable, found);
  if (!failure) return found;
  switch (failure->step) {
    case WalkStep::snapshot:
      log.LogError("CreateToolhelp32Snapshot failed: {}", failure->code);
      break;
    case WalkStep::first_entry:
      log.LogError("Process32FirstW failed: {}", failure->code);
      break;
    case WalkStep::next_entry:
      log.LogError("Process32NextW failed during process enumeration: {}", failure->code);
      break;
  }
  return found;
}

}  // namespace vosk::process
