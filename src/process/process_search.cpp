// The searches of ProcessControl.
#include <fmt/format.h>

#include "identity.h"
#include "process/process_control.h"
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
  const bool empty_list =
      failure && failure->step == WalkStep::first_entry && failure->code == platform::kNoMoreFiles;
  return empty_list ? std::nullopt : failure;
}

}  // namespace

ProcessList ProcessControl::FindTargetProcessesByName(std::u16string_view name) {
  ProcessList found;
  if (name.empty()) {
    log_.LogError("FindTargetProcessesByName: Provided target name is empty.");
    return found;
  }
  const auto failure = CollectByName(processes_, name, found);
  if (!failure) return found;
  switch (failure->step) {
    case WalkStep::snapshot:
      log_.LogError("FindTargetProcessesByName: CreateToolhelp32Snapshot failed. Error: {}",
                    failure->code);
      break;
    case WalkStep::first_entry:
      log_.LogError("FindTargetProcessesByName: Process32FirstW failed. Error: {}", failure->code);
      break;
    case WalkStep::next_entry:
      log_.LogError(
          "FindTargetProcessesByName: Process32NextW failed during enumeration. Error: {}",
          failure->code);
      break;
  }
  return found;
}

ProcessList ProcessControl::FindCoreProcesses() {
  ProcessList found;
  const auto failure = CollectByName(processes_, identity::kCoreExecutable, found);
  if (!failure) return found;
  switch (failure->step) {
    case WalkStep::snapshot:
      log_.LogError("CreateToolhelp32Snapshot failed: {}", failure->code);
      break;
    case WalkStep::first_entry:
      log_.LogError("Process32FirstW failed: {}", failure->code);
      break;
    case WalkStep::next_entry:
      log_.LogError("Process32NextW failed during process enumeration: {}", failure->code);
      break;
  }
  return found;
}

}  // namespace vosk::process
