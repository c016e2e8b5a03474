// Runs a life again and again, each time with another call of VOSK's hit.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/rehearsal/script.h"

namespace vosk::rehearsal {

// One way to break a promise, in however many runs.
struct SweepBreak {
  BrokenPromise broken;
  int runs = 0;
  std::string first_fault;  // "killed:17": what --fault takes
};

struct SweepResult {
  int runs = 0;
  std::vector<SweepBreak> breaks;
};

// Returns the ways in which a call can be hit: a refusal, another refusal, a refusal after the
// effect, a file that breaks while it is read, VOSK killed, the power cut (files whole, cut short
// and empty in turn).
[[nodiscard]] const std::vector<std::string>& SweepKinds();

// Returns which of a life's calls a sweep of that kind hits: all that can be hit, but calls that a
// quiet cycle repeats only a few times.
[[nodiscard]] std::vector<int> CallsToHit(const Script& script, const std::string& kind);

// Makes one run for each of them.
[[nodiscard]] SweepResult Sweep(const Script& script, const std::string& kind);

// Makes runs with two calls hit in any way; the seed decides which.
[[nodiscard]] SweepResult SweepPairs(const Script& script, int runs, unsigned seed);

// Makes one run with these faults and returns what it broke.
[[nodiscard]] std::vector<BrokenPromise> RunWithFaults(const Script& script,
                                                       const std::string& faults);

}  // namespace vosk::rehearsal
