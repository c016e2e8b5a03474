#pragma once

#include <chrono>
#include <optional>

#include "console/log.h"
#include "platform/clock.h"

namespace vosk::console {

// Keeps the status bar moving while a step takes its time and logs nothing.
class BarPulse {
 public:
  // Both outlive the pulse.
  BarPulse(platform::Clock& clock, LogSink& log) : clock_(clock), log_(log) {}

  // To be called often: redraws the bar once a second, for the first time a second after the first
  // call.
  void Beat();

 private:
  platform::Clock& clock_;
  LogSink& log_;
  std::optional<std::chrono::steady_clock::time_point> last_;
};

}  // namespace vosk::console
