#include "process/process_search.h"

#include "identity.h"
#include "process/process_walk.h"
#include "text/utf.h"

namespace vosk::process {
namespace {

// The failure of the walk is logged with these texts.
ProcessList FindByName(std::u16string_view name, const WalkTexts& texts,
                       platform::Processes& processes, console::LogSink& log) {
  const std::u16string wanted = text::ToLowerAscii(name);
  ProcessList found;
  const auto failure = WalkProcesses(processes, [&](const platform::ProcessEntry& entry) {
    if (text::ToLowerAscii(entry.executable_name) == wanted) found.push_back(entry.pid);
  });
  if (failure && !IsEmptyList(*failure)) LogWalkFailure(*failure, texts, log);
  return found;
}

}  // namespace

ProcessList FindTargetProcessesByName(std::u16string_view name, platform::Processes& processes,
                                      console::LogSink& log) {
  if (name.empty()) {
    log.LogError("FindTargetProcessesByName: Provided target name is empty.");
    return {};
  }
  return FindByName(
      name,
      {.snapshot = "FindTargetProcessesByName: CreateToolhelp32Snapshot failed. Error: ",
       .first_entry = "FindTargetProcessesByName: Process32FirstW failed. Error: ",
       .next_entry =
           "FindTargetProcessesByName: Process32NextW failed during enumeration. Error: "},
      processes, log);
}

ProcessList FindCoreProcesses(platform::Processes& processes, console::LogSink& log) {
  return FindByName(identity::kCoreExecutable,
                    {.snapshot = "CreateToolhelp32Snapshot failed: ",
                     .first_entry = "Process32FirstW failed: ",
                     .next_entry = "Process32NextW failed during process enumeration: "},
                    processes, log);
}

}  // namespace vosk::process
