#include "tests/support/choke_point.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <exception>

namespace vosk::support {

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
  Note(operation, subject);
  if (calls_ > call_budget_) ExceedBudget(fmt::format("more than {} calls", call_budget_));
  return faults.Ask(operation, subject);
}

void ChokePoint::ExceedBudget(const std::string& reason) {
  if (std::uncaught_exceptions() > 0) return;
  if (!over_budget_) ADD_FAILURE() << "The run exceeded its budget: " << reason;
  over_budget_ = true;
  throw BudgetExceeded{reason};
}

}  // namespace vosk::support
