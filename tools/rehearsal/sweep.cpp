#include "tools/rehearsal/sweep.h"

#include <fmt/format.h>

#include <algorithm>
#include <random>

namespace vosk::rehearsal {
namespace {

constexpr std::string_view kPowerCuts[] = {"power", "power_short", "power_empty"};

std::string FaultText(const std::string& kind, int number) {
  const std::string_view name = kind == "power" ? kPowerCuts[number % 3] : std::string_view(kind);
  return fmt::format("{}:{}", name, number);
}

void Record(SweepResult& result, const std::string& fault,
            const std::vector<BrokenPromise>& broken) {
  ++result.runs;
  for (const BrokenPromise& promise : broken) {
    const auto known = std::ranges::find_if(result.breaks, [&](const SweepBreak& entry) {
      return entry.broken.promise == promise.promise && entry.broken.how == promise.how;
    });
    known != result.breaks.end() ? void(++known->runs)
                                 : result.breaks.push_back({promise, 1, fault});
  }
}

}  // namespace

const std::vector<std::string>& SweepKinds() {
  static const std::vector<std::string> kKinds = {
      "fails", "fails_otherwise", "fails_after_effect", "broken_stream", "killed", "power"};
  return kKinds;
}

std::vector<BrokenPromise> RunWithFaults(const Script& script, const std::string& faults,
                                         bool* hit) {
  Life life;
  script.Apply(life);
  life.Add(FaultsFromText(faults), script.SweepFrom(), script.SweepTo());
  life.Run(script.Length());
  if (hit != nullptr) *hit = life.FaultWasHit();
  return life.witness.Broken();
}

SweepResult Sweep(const Script& script, const std::string& kind) {
  SweepResult result;
  for (int number = 1;; ++number) {
    const std::string fault = FaultText(kind, number);
    bool hit = false;
    const auto broken = RunWithFaults(script, fault, &hit);
    if (!hit) return result;
    Record(result, fault, broken);
  }
}

SweepResult SweepPairs(const Script& script, int runs, unsigned seed) {
  // About as many calls as a life has from where it is swept.
  Life clean;
  script.Apply(clean);
  clean.Run(script.Length());
  const auto calls = static_cast<int>(clean.host.choke.Calls());
  std::mt19937 random(seed);
  const auto below = [&random](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  SweepResult result;
  for (int run = 0; run < runs; ++run) {
    const auto& kinds = SweepKinds();
    const auto one = [&] {
      const std::string& kind =
          kinds[static_cast<std::size_t>(below(static_cast<int>(kinds.size())))];
      // Fewer calls can be refused than VOSK can be killed at.
      const int limit = kind == "killed" || kind == "power" ? calls : std::max(1, calls / 3);
      return FaultText(kind, 1 + below(limit));
    };
    const std::string faults = one() + '+' + one();
    Record(result, faults, RunWithFaults(script, faults));
  }
  return result;
}

}  // namespace vosk::rehearsal
