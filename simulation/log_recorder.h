// The log of a simulated host.
#pragma once

#include <string>
#include <vector>

#include "console/log.h"
#include "simulation/simulated_host.h"

namespace vosk::simulation {

using LogText = std::vector<std::string>;

// Returns the lines of VOSK.log without date and time ("[WARN] ..."); lines without a stamp are
// unchanged.
[[nodiscard]] LogText LogOf(const SimulatedHost& host);

// A log sink on the simulated host with an open file, for tests of a single service.
class LogRecorder {
 public:
  explicit LogRecorder(SimulatedHost& host);

  [[nodiscard]] console::LogSink& Sink() { return sink_; }
  // Returns what was logged since the sink was made.
  [[nodiscard]] LogText Lines() const;

  bool menu_visible = false;

 private:
  SimulatedHost& host_;
  console::LogSink sink_;
  std::size_t lines_before_ = 0;
};

}  // namespace vosk::simulation
