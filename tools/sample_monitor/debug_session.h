// Watches one process through the system's debugging interface until it ends.
#pragma once

#include "command_line.h"

namespace vosk::tools {

// Returns the monitor's exit code: 0 if the target has ended and its dump, if one was due, is
// written, otherwise 1 (no such process, a debugger is attached already, the dump failed).
int WatchUntilEnd(const MonitorOptions& options);

}  // namespace vosk::tools
