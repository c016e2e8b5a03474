// Sums up many lives.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/rehearsal/life.h"

namespace vosk::rehearsal {

struct LivedYear {
  unsigned seed = 0;
  Tally tally;
  std::vector<BrokenPromise> broken;
  Duration leapt{0};
};

class Summary {
 public:
  void Add(LivedYear year) { years_.push_back(std::move(year)); }

  // Returns the Core's availability, longest time down and its reason, crashes, reports, updates,
  // log, disk, requests; then every broken promise with the seed of a life that shows it.
  [[nodiscard]] std::string Table() const;
  // Returns a life with a broken promise, or else the one whose Core was down longest.
  [[nodiscard]] unsigned WorstSeed() const;
  [[nodiscard]] bool EveryPromiseKept() const;
  // Returns an SVG picture of how long the Cores were down at a time and how available they were.
  [[nodiscard]] std::string Picture() const;

 private:
  [[nodiscard]] Tally Sum() const;
  [[nodiscard]] const LivedYear& LongestDown() const;

  std::vector<LivedYear> years_;
};

}  // namespace vosk::rehearsal
