#pragma once

#include "simulation/clock.h"

namespace vosk::support {

// Time passes with every look at it.
class HurryingClock : public simulation::SimClock {
 public:
  using SimClock::SimClock;
  simulation::Duration step{0};
  std::chrono::steady_clock::time_point SteadyNow() override {
    Advance(step);
    return SimClock::SteadyNow();
  }
};

}  // namespace vosk::support
