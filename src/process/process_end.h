#pragma once

#include <cstdint>

#include "console/log.h"
#include "platform/processes.h"

namespace vosk::process {

// Ends a process by the API and, if that is denied, by "taskkill". Does not wait for the end.
// The returned error is the one for the caller's log.
platform::Result<> TerminateProcessL(const platform::ProcessHandle& handle, std::uint32_t exit_code,
                                     platform::Processes& processes, console::LogSink& log);

}  // namespace vosk::process
