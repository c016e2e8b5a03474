// Lets whole lives of a machine pass in virtual time; see scripts/rehearse.
#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tools/rehearsal/script.h"
#include "tools/rehearsal/sweep.h"

namespace {

using namespace vosk::rehearsal;

int Rehearse(const std::string& file, const std::string& faults) {
  const Script script = Script::FromFile(file);
  Life life;
  script.Apply(life);
  if (!faults.empty()) life.Add(FaultsFromText(faults), script.SweepFrom(), script.SweepTo());
  life.witness.on_line = [](std::string_view line) { fmt::print("{}\n", line); };
  life.Run(script.Length());
  fmt::print("\n--- how it ended ---\n{}", life.EndState());
  for (const auto& fired : life.host.choke.faults.Fired()) {
    fmt::print("hit: {} {}\n", fired.operation, fired.subject);
  }
  return life.witness.Broken().empty() ? 0 : 1;
}

int SweepAll(const std::string& file) {
  const Script script = Script::FromFile(file);
  bool broken = false;
  for (const std::string& kind : SweepKinds()) {
    const SweepResult result = Sweep(script, kind);
    fmt::print("{}: {} runs\n", kind, result.runs);
    for (const auto& [promise, runs, fault] : result.breaks) {
      fmt::print("  {}: {} ({} runs, first --fault {})\n", promise.promise, promise.how, runs,
                 fault);
      broken = true;
    }
    std::fflush(stdout);
  }
  return broken ? 1 : 0;
}

}  // namespace

int main(int count, char** values) {
  const std::vector<std::string> arguments(values + 1, values + count);
  try {
    std::string file;
    std::string faults;
    bool sweep = false;
    for (std::size_t at = 0; at < arguments.size(); ++at) {
      if (arguments[at] == "--fault" && at + 1 < arguments.size()) {
        faults = arguments[++at];
      } else if (arguments[at] == "--sweep") {
        sweep = true;
      } else {
        file = arguments[at];
      }
    }
    return sweep ? SweepAll(file) : Rehearse(file, faults);
  } catch (const std::exception& problem) {
    fmt::print(stderr, "rehearse: {}\n", problem.what());
    return 2;
  }
}
