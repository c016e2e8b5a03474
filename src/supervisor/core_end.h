// What follows when the watched Core has ended by itself.
#pragma once

#include "console/log.h"
#include "platform/clock.h"
#include "supervisor/crash_processing.h"
#include "supervisor/places.h"
#include "supervisor/state.h"
#include "supervisor/watched_core.h"

namespace vosk::supervisor {

class CoreEndHandling {
 public:
  CoreEndHandling(platform::Clock& clock, console::LogSink& log, WatchedCore& core,
                  CrashProcessing& crash_processing, const Places& places, SupervisorState& state);

  // Judges the end, counts a crash, ends the monitor once it had time to write the dump, reports
  // every dump that is there, and forgets the Core.
  void HandleCoreEnd();
  // The same for an end that an update has brought about: nothing to judge or to report.
  void HandleExpectedEnd();

 private:
  [[nodiscard]] CoreEnd JudgeCoreEnd();

  platform::Clock& clock_;
  console::LogSink& log_;
  WatchedCore& core_;
  CrashProcessing& crash_processing_;
  const Places& places_;
  SupervisorState& state_;
};

}  // namespace vosk::supervisor
