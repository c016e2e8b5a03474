// Which runtime libraries a process has loaded, and in which versions.
#pragma once

#include "console/log.h"
#include "platform/machine.h"
#include "platform/processes.h"
#include "report/host_info/process_module.h"

namespace vosk::report {

// Returns the modules of a live process that belong to the C++ runtime or the base of the system,
// sorted by name; none if they cannot be listed, which is logged.
[[nodiscard]] ProcessModules CaptureProcessModules(const platform::ProcessHandle& process,
                                                   platform::Processes& processes,
                                                   platform::Machine& machine,
                                                   console::LogSink& log);

}  // namespace vosk::report
