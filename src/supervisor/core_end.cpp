#include "supervisor/core_end.h"

namespace vosk::supervisor {
namespace {

constexpr std::chrono::milliseconds kDumpWriteWait{2500};

}  // namespace

CoreEndHandling::CoreEndHandling(platform::Clock& clock, console::LogSink& log, WatchedCore& core,
                                 CrashProcessing& crash_processing, const Places& places,
                                 SupervisorState& state)
    : clock_(clock),
      log_(log),
      core_(core),
      crash_processing_(crash_processing),
      places_(places),
      state_(state) {}

void CoreEndHandling::HandleCoreEnd() {
  log_.LogWarn("Previously monitored target process (PID {}) has terminated.", core_.Pid());
  const CoreEnd end = JudgeCoreEnd();
  core_.CloseEnded();
  crash_processing_.ProcessNewDumps(places_.dump_storage_directory, places_.log_root_directory,
                                    end);
  core_.Forget();
}

void CoreEndHandling::HandleExpectedEnd() {
  log_.LogInfo("Target process termination detected during update sequence (expected).");
  if (core_.HasMonitor()) {
    log_.LogInfo("Closing potentially orphaned ProcDump handle during update.");
    core_.DropMonitor();
  }
  core_.Forget();
}

CoreEnd CoreEndHandling::JudgeCoreEnd() {
  CoreEnd end;
  if (const auto exit_code = core_.ExitCode()) {
    end.exit_code = *exit_code;
  } else {
    log_.LogWarn("Failed to get exit code for terminated PID {}. Error: {}", core_.Pid(),
                 exit_code.error());
  }
  log_.LogInfo("Target process final exit code: {} (0x{:x})", ExitCodeText(end),
               end.exit_code.value_or(0));
  end.is_crash =
      !end.exit_code || (*end.exit_code != 0 && *end.exit_code != platform::kStillActive);
  if (!end.is_crash) {
    log_.LogInfo("Target process exited normally (Code 0).");
    return end;
  }
  ++state_.crash_count;
  log_.LogError("Target process exited abnormally (Code: {}). Assuming crash #{}",
                ExitCodeText(end), state_.crash_count);
  log_.LogInfo("Waiting {}ms for dump file generation...", kDumpWriteWait.count());
  clock_.SleepFor(kDumpWriteWait);
  return end;
}

}  // namespace vosk::supervisor
