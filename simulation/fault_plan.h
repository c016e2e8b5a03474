// Which call of the simulated system fails, and how; and at which call VOSK or everything ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vosk::simulation {

enum class FaultKind {
  fails,               // an error instead of the effect
  fails_after_effect,  // the effect takes place and an error is reported
  broken_stream,       // a file opened for reading breaks half-way
  killed,              // VOSK ends in the middle of the call; the machine goes on
  power_cut,           // everything ends
};

// VOSK and the power end at calls that change the machine or let time pass: between two of those
// the place does not matter.
[[nodiscard]] constexpr bool EndsVosk(FaultKind kind) {
  return kind == FaultKind::killed || kind == FaultKind::power_cut;
}

struct FaultRule {
  FaultKind kind = FaultKind::fails;
  std::string scope = {};  // "": every operation, "files": one interface, "files.Rename": one
  int first = 1;           // the first call hit, counted from 1 among those that the rule can hit
  int count = 1;           // how many calls in a row are hit; 0: none, they are only listed
  // Which of the operation's plausible codes; operations with fewer are left alone.
  std::size_t alternative = 0;
  std::optional<std::uint32_t> code = {};  // this code in place of a plausible one
};

struct Fault {
  FaultKind kind = FaultKind::fails;
  std::uint32_t code = 0;
};

// A call that was hit, or that could have been hit by a rule that only lists calls.
struct FiredFault {
  std::string operation;
  std::string subject;
  Fault fault;
};

class FaultPlan {
 public:
  void Add(FaultRule rule) { rules_.push_back({std::move(rule)}); }
  void Clear() { rules_.clear(); }
  // Asked once for every operation, in the order in which they are made.
  std::optional<Fault> Ask(std::string_view operation, const std::string& subject);
  [[nodiscard]] const std::vector<FiredFault>& Fired() const { return fired_; }
  [[nodiscard]] const std::vector<FiredFault>& Listed() const { return listed_; }

 private:
  struct CountedRule {
    FaultRule rule;
    int hits = 0;
  };
  std::vector<CountedRule> rules_;
  std::vector<FiredFault> fired_;
  std::vector<FiredFault> listed_;
};

// Returns the system's words for a number, as far as faults and the simulated system use it.
[[nodiscard]] std::string ErrorText(std::uint32_t code);
// Returns whether the operation's error holds those words and not only the number.
[[nodiscard]] bool TellsInWords(std::string_view operation);

}  // namespace vosk::simulation
