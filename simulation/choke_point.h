// The one place that every operation of the simulated system passes through.
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
// handlers for those do not catch it.
struct BudgetExceeded {
  std::string reason;
};

// Unwinds a VOSK that has just been ended. Not a std::exception either.
struct VoskEnded {
  FaultKind how = FaultKind::killed;
};

class ChokePoint {
 public:
  // Counts and traces an operation and returns whether it has to fail. Throws if VOSK ends here;
  // operations during the unwinding fail and have no effect.
  std::optional<Fault> Announce(std::string_view operation, const std::string& subject = {});

  // Counts and traces an operation that can neither fail nor unwind.
  void Note(std::string_view operation, const std::string& subject) noexcept;

  // Announces an operation and returns its effect's outcome, or the fault's.
  template <typename Effect>
  auto Perform(std::string_view operation, const std::string& subject, Effect effect)
      -> decltype(effect());

  // Notes the reason and unwinds; does nothing during another unwinding.
  void ExceedBudget(const std::string& reason);
  void SetCallBudget(std::uint64_t calls) { call_budget_ = calls; }

  // Returns the last operations, oldest first: "interface.operation subject".
  [[nodiscard]] const std::deque<std::string>& Trace() const { return trace_; }
  // Covers every operation since the start, even those that are no longer in the trace.
  [[nodiscard]] std::size_t TraceDigest() const { return digest_; }
  [[nodiscard]] std::uint64_t Calls() const { return calls_; }
  // Returns whether VOSK has ended and is unwinding.
  [[nodiscard]] bool VoskHasEnded() const { return ended_.has_value(); }
  // From here on, operations are those of a new VOSK.
  void BeginAnew() { ended_.reset(); }

  // Returns why the run was broken off; empty if it was not.
  [[nodiscard]] const std::string& Excess() const { return excess_; }

  // Ends VOSK at once by throwing.
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

// Returns the outcome that reports an error, whatever the type of the operation's result.
template <typename Outcome>
Outcome FailedOutcome(std::string_view operation, std::uint32_t code) {
  if constexpr (std::is_same_v<Outcome, int>) {
    return static_cast<int>(code);
  } else if constexpr (std::is_same_v<Outcome, platform::PrivilegeAdjustment>) {
    return {.accepted = false, .last_error = {code}};
  } else {
    // Errors of calls on files hold the system's words, others only the number.
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
