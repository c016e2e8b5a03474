// Stores what a capability does when each of its calls to the system fails, as a readable text.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "console/log.h"
#include "simulation/simulated_host.h"

namespace vosk::support {

struct TranscribedScene {
  // Sets the scene; nothing fails here.
  std::function<void(simulation::SimulatedHost&)> arrange = [](simulation::SimulatedHost&) {};
  // Runs the capability and returns how it ended: its result, the files that it left. One line or
  // more.
  std::function<std::string(simulation::SimulatedHost&, console::LogSink&)> act;
};

// Runs the scene clean, then once for every call and every way in which that can fail, each on a
// machine of its own. The stored text (see ExpectStoredText) has the clean run's log and end, and
// for each failed call what differs from it; calls that differ in the same way share an entry.
void ExpectFaultTranscript(const std::filesystem::path& file, const TranscribedScene& scene);

}  // namespace vosk::support
