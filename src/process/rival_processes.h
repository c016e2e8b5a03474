// Ends processes that compete with this supervisor or with its Core's monitor.
#pragma once

#include "console/log.h"
#include "platform/processes.h"

namespace vosk::process {

// Ends every supervisor that was started before this one; of two started in the same moment the one
// with the smaller PID stays. False if one could not be ended.
bool TerminateOtherInstances(platform::Processes& processes, console::LogSink& log);

// Ends every process whose name begins with "procdump". Returns false if one could not be ended.
bool TerminateProcDumpInstances(platform::Processes& processes, console::LogSink& log);

}  // namespace vosk::process
