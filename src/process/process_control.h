// Finds processes, checks whether they live, and ends them: the one service for all of it.
#pragma once

#include <cstdint>
#include <string_view>

#include "console/log.h"
#include "platform/processes.h"
#include "process/process_search.h"

namespace vosk::process {

class ProcessControl {
 public:
  ProcessControl(platform::Processes& processes, console::LogSink& log);

  // Ends a process by the API and, if that is denied, by "taskkill". Does not wait for the end.
  // Returns the error that the failure is reported with.
  platform::Result<> TerminateProcessL(const platform::ProcessHandle& handle,
                                       std::uint32_t exit_code);

  // Asks for the right to open processes of other users. True as well if the system grants the
  // request without granting the right.
  bool EnableDebugPriv();

  // True only while the process's exit code reads "still active"; false if it cannot be read.
  [[nodiscard]] bool IsProcessAlive(platform::ProcessId pid);

  // All processes with this executable name, in any letter case. Empty as well on failure.
  [[nodiscard]] ProcessList FindTargetProcessesByName(std::u16string_view name);
  [[nodiscard]] ProcessList FindCoreProcesses();

  // Ends every supervisor that was started before this one. False if one could not be ended.
  bool TerminateOtherInstances();
  // Ends every process whose name begins with "procdump". False if one could not be ended.
  bool TerminateProcDumpInstances();

 private:
  platform::Processes& processes_;
  console::LogSink& log_;
};

}  // namespace vosk::process
