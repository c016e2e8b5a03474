// Watches one process through the system's debugging interface until it ends.
#pragma once

#include "command_line.h"

namespace vosk::tools {

// What the monitor does when the target dies. Only kOneDump is a good monitor; the others let a
// supervisor meet a bad one.
enum class Behaviour { kOneDump, kTwoDumps, kNoDump };

// Returns the monitor's exit code: 0 when the target has ended and every dump that was due is
// written, otherwise 1 (no such process, a debugger is attached already, the dump failed).
int WatchUntilEnd(const MonitorOptions& options, Behaviour behaviour);

}  // namespace vosk::tools
