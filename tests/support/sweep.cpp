#include "tests/support/sweep.h"

#include <fmt/format.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

namespace vosk::support {
namespace {

constexpr std::string_view kTestProgram = "build/sanitize/tests/vosk_tests";

struct Kind {
  std::string name;
  FaultRule rule;
};

std::vector<Kind> Kinds(const std::string& scope) {
  return {
      {"fails", {.kind = FaultKind::fails, .scope = scope}},
      {"fails_otherwise", {.kind = FaultKind::fails, .scope = scope, .alternative = 1}},
      {"fails_after_effect", {.kind = FaultKind::fails_after_effect, .scope = scope}},
      {"broken_stream", {.kind = FaultKind::broken_stream, .scope = scope}},
  };
}

struct RunOutcome {
  testing::TestPartResultArray results;
  std::uint64_t calls = 0;
  std::size_t trace_digest = 0;
  std::optional<FiredFault> fired;

  [[nodiscard]] bool Passed() const {
    for (int n = 0; n < results.size(); ++n) {
      if (results.GetTestPartResult(n).failed()) return false;
    }
    return true;
  }
};

// Holds the run's failures back, so that they are shown together with the fault behind them.
void RunOnce(const Scenario& scenario, const std::optional<FaultRule>& rule, Duration from,
             RunOutcome& outcome) {
  const testing::ScopedFakeTestPartResultReporter reporter(
      testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &outcome.results);
  CheckedHost host;
  // Drawing takes most of a run's time, so the window is low.
  host.console.info.bottom = 3;
  if (rule && from == Duration(0)) host.choke.faults.Add(*rule);
  if (rule && from > Duration(0)) {
    host.At(from, [&rule](SimulatedHost& at) { at.choke.faults.Add(*rule); });
  }
  try {
    scenario(host);
  } catch (const BudgetExceeded&) {
    // The failure has been counted already.
  } catch (const std::exception& escaped) {
    ADD_FAILURE() << "An exception escaped: " << escaped.what();
  }
  outcome.calls = host.choke.Calls();
  outcome.trace_digest = host.choke.TraceDigest();
  if (!host.choke.faults.Fired().empty()) outcome.fired = host.choke.faults.Fired().front();
}

void Explain(const RunOutcome& outcome, const std::string& run) {
  for (int n = 0; n < outcome.results.size(); ++n) {
    const testing::TestPartResult& result = outcome.results.GetTestPartResult(n);
    if (!result.failed()) continue;
    ADD_FAILURE_AT(result.file_name(), result.line_number()) << result.message();
  }
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  std::string what = "nothing was made to fail";
  if (outcome.fired) {
    what = fmt::format("{} {} failed with {}", outcome.fired->operation, outcome.fired->subject,
                       outcome.fired->fault.code);
  }
  ADD_FAILURE() << fmt::format("Run {}: {}\nRepeat it: VOSK_FAULT={} {} --gtest_filter={}.{}", run,
                               what, run, kTestProgram, test->test_suite_name(), test->name());
}

enum class Verdict { passed, failed, nothing_fired };

Verdict RunWithFault(const Scenario& scenario, const SweepLimits& limits, const Kind& kind, int n) {
  FaultRule rule = kind.rule;
  rule.first = n;
  RunOutcome outcome;
  RunOnce(scenario, rule, limits.from, outcome);
  if (!outcome.Passed()) {
    Explain(outcome, fmt::format("{}:{}", kind.name, n));
    return Verdict::failed;
  }
  return outcome.fired ? Verdict::passed : Verdict::nothing_fired;
}

void RepeatOne(const Scenario& scenario, const SweepLimits& limits, const std::string& run) {
  for (const Kind& kind : Kinds(limits.scope)) {
    if (!run.starts_with(kind.name + ":")) continue;
    RunWithFault(scenario, limits, kind, std::atoi(run.c_str() + kind.name.size() + 1));
    return;
  }
  ADD_FAILURE() << "VOSK_FAULT=" << run << " names no kind of fault.";
}

// Returns whether the scenario passes with nothing failing, and makes the same calls each time.
bool PassesClean(const Scenario& scenario) {
  RunOutcome clean;
  RunOnce(scenario, std::nullopt, Duration(0), clean);
  RunOutcome again;
  RunOnce(scenario, std::nullopt, Duration(0), again);
  if (!clean.Passed()) {
    Explain(clean, "clean");
    return false;
  }
  EXPECT_EQ(again.calls, clean.calls) << "two clean runs differ";
  EXPECT_EQ(again.trace_digest, clean.trace_digest) << "two clean runs differ";
  return again.trace_digest == clean.trace_digest;
}

}  // namespace

void SweepFaults(const Scenario& scenario, const SweepLimits& limits) {
  if (const char* run = std::getenv("VOSK_FAULT")) return RepeatOne(scenario, limits, run);
  if (!PassesClean(scenario)) return;

  int runs = 0;
  for (const Kind& kind : Kinds(limits.scope)) {
    for (int n = 1; runs < limits.runs; ++n, ++runs) {
      const Verdict verdict = RunWithFault(scenario, limits, kind, n);
      if (verdict == Verdict::failed) return;
      if (verdict == Verdict::nothing_fired) break;
    }
  }
  EXPECT_LT(runs, limits.runs) << "the sweep passed its limit of runs";
  testing::Test::RecordProperty("swept_runs", runs);
}

}  // namespace vosk::support
