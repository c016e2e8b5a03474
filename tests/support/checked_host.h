#pragma once

#include <gtest/gtest.h>

#include "simulation/simulated_host.h"

namespace vosk::support {

// Tests speak of the simulated machine as of their own.
using namespace simulation;  // NOLINT(google-build-using-namespace)

// A simulated host that fails the test at its end if anything was left open or a budget was
// exceeded.
class CheckedHost : public SimulatedHost {
 public:
  ~CheckedHost() {
    for (const std::string& leftover : Leftovers()) ADD_FAILURE() << leftover;
    if (!choke.Excess().empty()) ADD_FAILURE() << "The run exceeded its budget: " << choke.Excess();
  }
};

}  // namespace vosk::support
