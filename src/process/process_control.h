// The one service that finds processes, checks whether they are alive, and ends them.
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
  // The returned error is the one for the caller's log.
  platform::Result<> TerminateProcessL(const platform::ProcessHandle& handle,
                                       std::uint32_t exit_code);

  // Asks for the right to open processes of other users. Also returns true if the system accepts
  // the request without granting the right.
  bool EnableDebugPriv();

  // Returns true only while the process's exit code is "still active"; false if it cannot be read.
  [[nodiscard]] bool IsProcessAlive(platform::ProcessId pid);

  // Returns all processes with this executable name, in any letter case. On failure, which is
  // logged, the list holds what was found before it.
  [[nodiscard]] ProcessList FindTargetProcessesByName(std::u16string_view name);
  [[nodiscard]] ProcessList FindCoreProcesses();

  // Ends every supervisor that was started before this one. False if one could not be ended.
  bool TerminateOtherInstances();
  // Ends every process whose name begins with "procdump". Returns false if one could not be ended.
  bool TerminateProcDumpInstances();

 private:
  platform::Processes& processes_;
  console::LogSink& log_;
};

}  // namespace vosk::process
