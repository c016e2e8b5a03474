// Finds processes, tells whether they live, and ends them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "console/log.h"
#include "platform/processes.h"

namespace vosk::process {

// In the order of the system's snapshot.
using ProcessList = std::vector<platform::ProcessId>;

class ProcessControl {
 public:
  ProcessControl(platform::Processes& processes, console::LogSink& log);

  // Ends a process by the API and, where that is denied, by "taskkill". Does not wait for the end.
  // The error is the one that the failure is reported with.
  platform::Result<> TerminateProcessL(const platform::ProcessHandle& handle,
                                       std::uint32_t exit_code);

  // Asks for the right to open processes of other users. True as well where the system grants the
  // request without granting the right.
  bool EnableDebugPriv();

  // True only while the process's exit code reads "still active"; false where it cannot be read.
  [[nodiscard]] bool IsProcessAlive(platform::ProcessId pid);

  // All processes with this executable name, in any letter case. Empty as well on failure.
  [[nodiscard]] ProcessList FindTargetProcessesByName(std::u16string_view name);
  [[nodiscard]] ProcessList FindCoreProcesses();

  // Ends every other running supervisor. False where one could not be ended.
  bool TerminateOtherInstances();

  // Ends every process whose name begins with "procdump". False where one could not be ended.
  bool TerminateProcDumpInstances();

 private:
  platform::Result<> TerminateByTaskkill(platform::ProcessId pid);
  bool TerminateOtherInstance(platform::ProcessId pid, int& attempts);
  std::optional<bool> CollectProcDumpInstances(ProcessList& found, bool& complete);
  bool TerminateProcDumpInstance(platform::ProcessId pid, int& attempts);

  platform::Processes& processes_;
  console::LogSink& log_;
};

}  // namespace vosk::process
