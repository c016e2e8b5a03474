#pragma once

#include <string_view>
#include <vector>

#include "console/log.h"
#include "platform/processes.h"

namespace vosk::process {

// In the order of the system's snapshot.
using ProcessList = std::vector<platform::ProcessId>;

// Finds all processes with this executable name, in any letter case. On failure, which is logged,
// the list holds what was found before it.
[[nodiscard]] ProcessList FindTargetProcessesByName(std::u16string_view name,
                                                    platform::Processes& processes,
                                                    console::LogSink& log);
// The same for the Core's executable name.
[[nodiscard]] ProcessList FindCoreProcesses(platform::Processes& processes, console::LogSink& log);

}  // namespace vosk::process
