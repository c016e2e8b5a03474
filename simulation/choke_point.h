// The one place that every operation of the simulated system passes.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/processes.h"
#include "platform/types.h"
#include "simulation/fault_plan.h"

namespace vosk::simulation {

// Unwinds a product that ran past its budget. Not a std::exception, so that the product's own
// handlers for those do not take it.
struct BudgetExceeded {
  std::string reason;
};

// Unwinds a VOSK that has just ended without knowing it. No std::exception either.
struct VoskEnded {
  FaultKind how = FaultKind::killed;
};

class ChokePoint {
 public:
  // Counts and traces an operation and says whether it has to fail. Throws where VOSK ends here;
  // what it still asks for while it unwinds fails and has no effect.
  std::optional<Fault> Announce(std::string_view operation, const std::string& subject = {});

  // Counts and traces an operation that can neither fail nor unwind.
  void Note(std::string_view operation, const std::string& subject) noexcept;

  // Announces an operation and gives its effect's outcome, or the fault's.
  template <typename Effect>
  auto Perform(std::string_view operation, const std::string& subject, Effect effect)
      -> decltype(effect());

  // Notes the reason and unwinds; does nothing while something else already unwinds.
  void ExceedBudget(const std::string& reason);
  void SetCallBudget(std::uint64_t calls) { call_budget_ = calls; }

  // The last operations, oldest first: "interface.operation subject".
  [[nodiscard]] const std::deque<std::string>& Trace() const { return trace_; }
  // Covers every operation since the start, also those that the trace has forgotten.
  [[nodiscard]] std::size_t TraceDigest() const { return digest_; }
  [[nodiscard]] std::uint64_t Calls() const { return calls_; }
  // Whether VOSK has ended and unwinds.
  [[nodiscard]] bool VoskHasEnded() const { return ended_.has_value(); }
  // From here on operations are those of a new VOSK.
  void BeginAnew() { ended_.reset(); }

  // Why the run was broken off; empty where it was not.
  [[nodiscard]] const std::string& Excess() const { return excess_; }

  // Ends VOSK here and now, whatever it does: throws.
  [[noreturn]] void EndVosk(FaultKind how);
  // Called with every operation that VOSK asks for, before it takes place.
  std::function<void(std::string_view operation, const std::string& subject)> on_operation;

  FaultPlan faults;

 private:
  std::deque<std::string> trace_;
  std::size_t digest_ = 0;
  std::uint64_t calls_ = 0;
  std::uint64_t call_budget_ = 500'000;
  std::string excess_;
  std::optional<FaultKind> ended_;
};

// The outcome that reports an error, whatever the form of the operation's answer.
template <typename Outcome>
Outcome FailedOutcome(std::string_view operation, std::uint32_t code) {
  if constexpr (std::is_same_v<Outcome, int>) {
    return static_cast<int>(code);
  } else if constexpr (std::is_same_v<Outcome, platform::PrivilegeAdjustment>) {
    return {.accepted = false, .last_error = {code}};
  } else {
    // Calls on files bring the system's words for the error, others its number alone.
    const platform::ErrorCode number{code};
    return tl::unexpected(platform::Error(number, TellsInWords(operation) ? ErrorText(code) : ""));
  }
}

template <typename Effect>
auto ChokePoint::Perform(std::string_view operation, const std::string& subject, Effect effect)
    -> decltype(effect()) {
  const auto fault = Announce(operation, subject);
  if (!fault) return effect();
  if (fault->kind == FaultKind::fails_after_effect) (void)effect();
  return FailedOutcome<decltype(effect())>(operation, fault->code);
}

}  // namespace vosk::simulation
