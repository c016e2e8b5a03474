// Runs a scenario again and again, each time with another call of the system failing.
#pragma once

#include <functional>
#include <string>

#include "tests/support/checked_host.h"

namespace vosk::support {

// Sets the scene on a fresh host, runs the product and checks what must hold whatever failed:
// host.choke.faults.Fired() says what failed.
using Scenario = std::function<void(SimulatedHost&)>;

struct SweepLimits {
  std::string scope = {};  // as in FaultRule
  int runs = 20'000;       // more are a failure: the sweep does not end
  Duration from{0};        // calls before this time never fail
};

// Runs the scenario clean (twice: both runs must make the same calls), then, for every kind of
// fault, with the first call failing, the second, and so on until no call is left. Stops at the
// first run that fails and prints the command that repeats it. VOSK_FAULT=kind:n in the environment
// runs just that one.
void SweepFaults(const Scenario& scenario, const SweepLimits& limits = {});

}  // namespace vosk::support
