#include "simulation/choke_point.h"

#include <fmt/format.h>

#include <exception>

namespace vosk::simulation {

constexpr std::size_t kTraceLines = 5'000;

void ChokePoint::Note(std::string_view operation, const std::string& subject) noexcept {
  ++calls_;
  std::string line(operation);
  if (!subject.empty()) line.append(" ").append(subject);
  digest_ = digest_ * 31 + std::hash<std::string>{}(line);
  trace_.push_back(std::move(line));
  if (trace_.size() > kTraceLines) trace_.pop_front();
}

std::optional<Fault> ChokePoint::Announce(std::string_view operation, const std::string& subject) {
  if (ended_) {
    if (std::uncaught_exceptions() > 0) return Fault{FaultKind::fails, 0};
    throw VoskEnded{*ended_};
  }
  Note(operation, subject);
  if (calls_ > call_budget_) ExceedBudget(fmt::format("more than {} calls", call_budget_));
  if (on_operation) on_operation(operation, subject);
  const auto fault = faults.Ask(operation, subject);
  if (!fault || !EndsVosk(fault->kind)) return fault;
  EndVosk(fault->kind);
}

void ChokePoint::EndVosk(FaultKind how) {
  ended_ = how;
  throw VoskEnded{how};
}

void ChokePoint::ExceedBudget(const std::string& reason) {
  if (std::uncaught_exceptions() > 0) return;
  if (excess_.empty()) excess_ = reason;
  throw BudgetExceeded{reason};
}

}  // namespace vosk::simulation
