#include "tools/rehearsal/sweep.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <random>

namespace vosk::rehearsal {
namespace {

// A quiet cycle makes the same calls as the one before.
constexpr int kRepetitionsHit = 2;
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

std::vector<BrokenPromise> RunWithFaults(const Script& script, const std::string& faults) {
  Life life;
  script.Apply(life);
  life.Add(FaultsFromText(faults), script.SweepFrom(), script.SweepTo());
  life.Run(script.Length());
  return life.witness.Broken();
}

std::vector<int> CallsToHit(const Script& script, const std::string& kind) {
  Life life;
  script.Apply(life);
  auto faults = FaultsFromText(FaultText(kind, 1));
  faults.front().rule.count = 0;
  life.Add(faults, script.SweepFrom(), script.SweepTo());
  life.Run(script.Length());
  const auto& calls = life.host.choke.faults.Listed();
  const bool ends_vosk = EndsVosk(faults.front().rule.kind);
  std::vector<int> numbers;
  std::map<std::string, int> seen;
  std::string before;
  for (std::size_t at = 0; at < calls.size(); ++at) {
    const std::string call = calls[at].operation + ' ' + calls[at].subject;
    // If VOSK ends at one of several equal calls in a row, the machine is the same.
    const bool repeated = ends_vosk ? call == before : seen[call]++ >= kRepetitionsHit;
    before = call;
    if (!repeated) numbers.push_back(static_cast<int>(at) + 1);
  }
  return numbers;
}

SweepResult Sweep(const Script& script, const std::string& kind) {
  SweepResult result;
  for (const int number : CallsToHit(script, kind)) {
    const std::string fault = FaultText(kind, number);
    Record(result, fault, RunWithFaults(script, fault));
  }
  return result;
}

SweepResult SweepPairs(const Script& script, int runs, unsigned seed) {
  std::map<std::string, std::vector<int>> calls;
  for (const std::string& kind : SweepKinds()) calls[kind] = CallsToHit(script, kind);
  std::mt19937 random(seed);
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  SweepResult result;
  for (int run = 0; run < runs; ++run) {
    const auto one = [&] {
      const std::string& kind = SweepKinds()[below(SweepKinds().size())];
      return FaultText(kind, calls[kind][below(calls[kind].size())]);
    };
    const std::string faults = one() + '+' + one();
    Record(result, faults, RunWithFaults(script, faults));
  }
  return result;
}

}  // namespace vosk::rehearsal
