// What is made sure of before an update that the monitoring loop begins.
#pragma once

#include "console/log.h"
#include "process/process_control.h"
#include "supervisor/core_end.h"
#include "supervisor/watched_core.h"

namespace vosk::supervisor {

// Forgets what no longer runs, reports a Core that has ended since the cycle looked at it, and
// opens a Core anew that is known without a handle. `core_runs` as the cycle has found it. The
// update goes on whatever is found.
void ValidateBeforeUpdate(WatchedCore& core, CoreEndHandling& core_end,
                          process::ProcessControl& processes, console::LogSink& log,
                          bool core_runs);

}  // namespace vosk::supervisor
