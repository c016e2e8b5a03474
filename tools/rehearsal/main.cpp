// Lets whole lives of a machine pass in virtual time; see scripts/rehearse.
#include <fmt/format.h>

#include <cstdio>
#include <deque>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/rehearsal/random_life.h"
#include "tools/rehearsal/screen.h"
#include "tools/rehearsal/script.h"
#include "tools/rehearsal/summary.h"
#include "tools/rehearsal/sweep.h"

namespace {

using namespace vosk::rehearsal;

constexpr int kKept = 0;
constexpr int kBroken = 1;
constexpr int kMisused = 2;

struct Wish {
  std::string life;
  std::string faults;
  std::string picture;
  double watch = 0;  // 0: nobody watches
  int years = 0;
  unsigned seed = 1;
  bool sweep = false;
  bool sentences = false;
};

Wish Understand(const std::vector<std::string>& arguments) {
  Wish wish;
  for (std::size_t at = 0; at < arguments.size(); ++at) {
    const std::string& word = arguments[at];
    const auto value = [&] {
      if (++at == arguments.size()) throw std::invalid_argument(word + " wants a value");
      return arguments[at];
    };
    if (word == "--fault") {
      wish.faults = value();
    } else if (word == "--watch") {
      wish.watch = std::stod(value());  // "60x" reads as 60
    } else if (word == "--years") {
      wish.years = std::stoi(value());
    } else if (word == "--seed") {
      wish.seed = static_cast<unsigned>(std::stoul(value()));
    } else if (word == "--picture") {
      wish.picture = value();
    } else if (word == "--sweep") {
      wish.sweep = true;
    } else if (word == "--sentences") {
      wish.sentences = true;
    } else if (word.starts_with("-") || !wish.life.empty()) {
      throw std::invalid_argument("what is '" + word + "'?");
    } else {
      wish.life = word;
    }
  }
  if (wish.life.empty() && wish.years <= 0 && !wish.sentences) {
    throw std::invalid_argument("name a life, or --years");
  }
  return wish;
}

int Rehearse(const Wish& wish) {
  const Script script = Script::FromFile(wish.life);
  Life life;
  script.Apply(life);
  if (!wish.faults.empty()) {
    life.Add(FaultsFromText(wish.faults), script.SweepFrom(), script.SweepTo());
  }
  if (wish.watch > 0) {
    WatchScreen(life, wish.watch);
  } else {
    life.witness.on_line = [](std::string_view line) { fmt::print("{}\n", line); };
  }
  life.Run(script.Length());
  // Gives the whole terminal back to the reader.
  if (wish.watch > 0) fmt::print("\x1b[r\x1b[999;1H\n");
  fmt::print("\n--- how it ended ---\n{}", life.EndState());
  for (const auto& fired : life.host.choke.faults.Fired()) {
    fmt::print("hit: {} {}\n", fired.operation, fired.subject);
  }
  return life.witness.Broken().empty() ? kKept : kBroken;
}

int SweepAll(const Wish& wish) {
  const Script script = Script::FromFile(wish.life);
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
  return broken ? kBroken : kKept;
}

// Prints each broken promise with the lines before it.
void ShowWhatLedToBreaks(Life& life, std::deque<std::string>& lines) {
  constexpr std::size_t kLines = 40;
  life.witness.on_line = [&lines](std::string_view line) {
    lines.emplace_back(line);
    if (lines.size() > kLines) lines.pop_front();
  };
  life.witness.on_break = [&lines, &life](const BrokenPromise& broken) {
    for (const std::string& line : lines) fmt::print("{}\n", line);
    for (const auto& [pid, process] : life.host.processes.Table()) {
      if (process.running) fmt::print("running: {} {}\n", pid, process.command_line);
    }
    fmt::print("BROKEN after {} s: {}: {}\n\n", broken.at.count() / 1000, broken.promise,
               broken.how);
  };
}

int LiveYears(const Wish& wish) {
  Summary summary;
  for (int year = 0; year < wish.years; ++year) {
    const unsigned seed = wish.seed + static_cast<unsigned>(year);
    Life life;
    DrawYear(life, seed);
    std::deque<std::string> lines;
    if (wish.years == 1) ShowWhatLedToBreaks(life, lines);
    life.Run(kYear);
    summary.Add({.seed = seed,
                 .tally = life.witness.Counted(),
                 .broken = life.witness.Broken(),
                 .leapt = life.host.clock.Leapt()});
  }
  fmt::print("{}", summary.Table());
  if (!wish.picture.empty()) std::ofstream(wish.picture) << summary.Picture();
  fmt::print("The worst of them again: scripts/rehearse --years 1 --seed {}\n",
             summary.WorstSeed());
  return summary.EveryPromiseKept() ? kKept : kBroken;
}

}  // namespace

int main(int count, char** values) {
  try {
    const Wish wish = Understand({values + 1, values + count});
    if (wish.sentences) {
      fmt::print(
          "A life is a line for each event: \"[day N ]HH:MM[:SS] SENTENCE\"; what has no "
          "time is the\nscene at 09:00 of the first day. It closes with \"end\".\n{}",
          Script::Sentences());
      return kKept;
    }
    if (wish.years > 0) return LiveYears(wish);
    return wish.sweep ? SweepAll(wish) : Rehearse(wish);
  } catch (const std::exception& problem) {
    fmt::print(stderr, "rehearse: {}\n", problem.what());
    return kMisused;
  }
}
