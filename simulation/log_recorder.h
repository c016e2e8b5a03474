// The log of a simulated host.
#pragma once

#include <string>
#include <vector>

#include "console/log.h"
#include "simulation/simulated_host.h"

namespace vosk::simulation {

using LogText = std::vector<std::string>;

// The lines of VOSK.log without date and time ("[WARN] ..."); lines without a stamp as they stand.
[[nodiscard]] LogText LogOf(const SimulatedHost& host);

// A log sink over the simulated host, its file opened; for one service by itself.
class LogRecorder {
 public:
  explicit LogRecorder(SimulatedHost& host);

  [[nodiscard]] console::LogSink& Sink() { return sink_; }
  // What was logged since the sink was made.
  [[nodiscard]] LogText Lines() const;

  bool menu_visible = false;

 private:
  SimulatedHost& host_;
  console::LogSink sink_;
  std::size_t lines_before_ = 0;
};

}  // namespace vosk::simulation
