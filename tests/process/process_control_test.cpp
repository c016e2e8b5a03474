#include "process/process_control.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"

namespace vosk::process {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogLacks;
using support::LogRecorder;
using support::OnTerminate;
using support::SimulatedHost;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kFullAccess = platform::access::kSynchronize |
                                      platform::access::kQueryInformation |
                                      platform::access::kTerminate;

struct Bench {
  CheckedHost host;
  LogRecorder log{host};
  ProcessControl control{host.processes, log.Sink()};
};

// Ending one process, from the handle to the last resort.
struct TerminationRow {
  std::string what;
  std::uint32_t rights;
  OnTerminate on_terminate;
  bool survives_taskkill;
  platform::ErrorCode outcome;
  support::LogText log;
};

TEST(TerminateProcessL, EscalatesOnlyWhereAccessIsDenied) {
  const std::string fallback =
      "[WARN] TerminateProcessL: Access denied with API. Attempting fallback using 'taskkill "
      "/F'...";
  const std::string attempt =
      "[INFO] TerminateProcessL: Attempting termination via API for handle ";
  const std::string denied = "[ERROR] TerminateProcessL: TerminateProcess API failed. Error: 5";
  const TerminationRow rows[] = {
      {"plain",
       kFullAccess,
       OnTerminate::dies,
       false,
       platform::kSuccess,
       {attempt + "(PID: 1004)",
        "[INFO] TerminateProcessL: TerminateProcess API succeeded for PID: 1004"}},
      {"taskkill helps",
       kFullAccess,
       OnTerminate::access_denied,
       false,
       platform::kSuccess,
       {attempt + "(PID: 1004)", denied, fallback,
        "[INFO] TerminateProcessL: Executing fallback: taskkill /F /PID 1004",
        "[INFO] TerminateProcessL: Fallback 'taskkill /F' command executed successfully for PID: "
        "1004"}},
      {"taskkill does not help",
       kFullAccess,
       OnTerminate::access_denied,
       true,
       platform::kAccessDenied,
       {attempt + "(PID: 1004)", denied, fallback,
        "[INFO] TerminateProcessL: Executing fallback: taskkill /F /PID 1004",
        "[ERROR] TerminateProcessL: Fallback 'taskkill /F' command failed or returned error. "
        "Result "
        "code: 1"}},
      {"no right to ask for the PID",
       platform::access::kSynchronize,
       OnTerminate::dies,
       false,
       platform::kAccessDenied,
       {"[ERROR] TerminateProcessL: Failed to get PID from handle. Error: 5",
        attempt + "(PID unknown)", denied, fallback,
        "[ERROR] TerminateProcessL: Cannot use taskkill fallback because PID is unknown."}},
  };
  for (const TerminationRow& row : rows) {
    SCOPED_TRACE(row.what);
    Bench bench;
    auto& process = bench.host.processes.Add(u"stubborn.exe");
    process.on_terminate = row.on_terminate;
    process.survives_taskkill = row.survives_taskkill;
    const auto handle = bench.host.processes.Open(row.rights, process.pid);
    const auto outcome = bench.control.TerminateProcessL(*handle, 1);
    EXPECT_EQ(outcome ? platform::kSuccess : outcome.error(), row.outcome);
    EXPECT_EQ(process.running, row.outcome != platform::kSuccess);
    EXPECT_THAT(bench.log.Lines(), LogIs(row.log));
  }
}

TEST(TerminateProcessL, TakesNoOtherErrorForAChallenge) {
  Bench bench;
  EXPECT_EQ(bench.control.TerminateProcessL({}, 1).error(), platform::kInvalidHandle);
  const platform::ProcessHandle invalid(platform::kInvalidHandleValue, bench.host.processes);
  EXPECT_EQ(bench.control.TerminateProcessL(invalid, 1).error(), platform::kInvalidHandle);
  const auto pid = bench.host.processes.Add(u"other.exe").pid;
  const auto handle = bench.host.processes.Open(kFullAccess, pid);
  bench.host.FailNext("processes.Terminate", 6);
  EXPECT_EQ(bench.control.TerminateProcessL(*handle, 1).error(), platform::kInvalidHandle);
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas({"[ERROR] TerminateProcessL: Received invalid process handle.",
              "[ERROR] TerminateProcessL: Received invalid process handle.",
              "[ERROR] TerminateProcessL: Not attempting taskkill fallback as error was not Access "
              "Denied."}));
}

TEST(EnableDebugPriv, JudgesTheCallBeforeTheLastError) {
  struct Row {
    std::string operation;
    std::uint32_t code;
    bool result;
    std::string line;
  };
  const Row rows[] = {
      {"", 0, true, "[INFO] EnableDebugPriv: SeDebugPrivilege adjustment succeeded."},
      {"processes.OpenOwnToken", 5, false, "[ERROR] EnableDebugPriv: OpenProcessToken failed: 5"},
      {"processes.LookUpPrivilege", 1313, false,
       "[ERROR] EnableDebugPriv: LookupPrivilegeValue failed: 1313"},
      {"processes.EnablePrivilege", 1300, true,
       "[WARN] EnableDebugPriv: SeDebugPrivilege is not assigned to this user/process. Monitoring "
       "may be limited."},
      {"processes.EnablePrivilege", 0, true,
       "[INFO] EnableDebugPriv: SeDebugPrivilege adjustment succeeded."},
      {"processes.EnablePrivilege", 6, false,
       "[ERROR] EnableDebugPriv: AdjustTokenPrivileges failed: 6"},
  };
  for (const Row& row : rows) {
    Bench bench;
    if (!row.operation.empty()) bench.host.FailNext(row.operation, row.code);
    EXPECT_EQ(bench.control.EnableDebugPriv(), row.result) << row.operation << row.code;
    EXPECT_THAT(bench.log.Lines(), LogIs({row.line}));
  }
}

TEST(IsProcessAlive, TheExitCodeAloneDecides) {
  Bench bench;
  auto& process = bench.host.processes.Add(u"any.exe");
  EXPECT_TRUE(bench.control.IsProcessAlive(process.pid));
  EXPECT_FALSE(bench.control.IsProcessAlive(999'999));
  EXPECT_THAT(bench.log.Lines(), IsEmpty());
  bench.host.FailNext("processes.ExitCode", 31);
  EXPECT_FALSE(bench.control.IsProcessAlive(process.pid));
  process.open_error = platform::kAccessDenied;
  EXPECT_FALSE(bench.control.IsProcessAlive(process.pid));
  EXPECT_THAT(
      bench.log.Lines(),
      LogIs({"[ERROR] GetExitCodeProcess failed for PID 1004: 31",
             "[WARN] Access denied when trying to query PID 1004. Cannot confirm status."}));
}

TEST(ProcessSearch, TellsAtWhichStepTheListBroke) {
  struct Row {
    std::string operation;
    std::uint32_t code;
    std::string by_name;
    std::string core;
  };
  const Row rows[] = {
      {"processes.TakeSnapshot", 8,
       "[ERROR] FindTargetProcessesByName: CreateToolhelp32Snapshot failed. Error: 8",
       "[ERROR] CreateToolhelp32Snapshot failed: 8"},
      {"processes.Snapshot.First", 87,
       "[ERROR] FindTargetProcessesByName: Process32FirstW failed. Error: 87",
       "[ERROR] Process32FirstW failed: 87"},
      {"processes.Snapshot.Next", 6,
       "[ERROR] FindTargetProcessesByName: Process32NextW failed during enumeration. Error: 6",
       "[ERROR] Process32NextW failed during process enumeration: 6"},
  };
  for (const Row& row : rows) {
    Bench bench;
    bench.host.FailNext(row.operation, row.code);
    (void)bench.control.FindTargetProcessesByName(u"x.exe");
    bench.host.FailNext(row.operation, row.code);
    (void)bench.control.FindCoreProcesses();
    EXPECT_THAT(bench.log.Lines(), LogIs({row.by_name, row.core}));
  }
  Bench bench;
  bench.host.FailNext("processes.Snapshot.First", 18);
  EXPECT_THAT(bench.control.FindTargetProcessesByName(u"x.exe"), IsEmpty());
  EXPECT_THAT(bench.log.Lines(), IsEmpty()) << "an empty list is no failure";
  EXPECT_THAT(bench.control.FindTargetProcessesByName(u""), IsEmpty());
  EXPECT_THAT(bench.log.Lines(),
              LogIs({"[ERROR] FindTargetProcessesByName: Provided target name is empty."}));
}

TEST(ProcessSearch, KeepsWhatItFoundBeforeTheListBroke) {
  Bench bench;
  const auto first = bench.host.processes.Add(u"veldran CORE.exe").pid;
  bench.host.processes.Add(u"VELDRAN Core.exe.bak");
  const auto second = bench.host.processes.Add(u"VELDRAN Core.exe").pid;
  EXPECT_THAT(bench.control.FindCoreProcesses(), ElementsAre(first, second));
  bench.host.choke.faults.Add({.scope = "processes.Snapshot.Next", .first = 3, .code = 6});
  EXPECT_THAT(bench.control.FindCoreProcesses(), ElementsAre(first));
}

TEST(TerminateOtherInstances, CountsWhatItEnded) {
  Bench alone;
  EXPECT_TRUE(alone.control.TerminateOtherInstances());
  EXPECT_THAT(
      alone.log.Lines(),
      LogIs({"[INFO] Checking for and terminating other running VOSK instances (VOSK.exe)...",
             "[INFO] Found 1 VOSK process(es). Terminating others..."}));

  Bench bench;
  bench.host.processes.Add(u"VOSK.exe");
  auto& gone = bench.host.processes.Add(u"VOSK.exe");
  gone.open_error = platform::kInvalidParameter;
  EXPECT_TRUE(bench.control.TerminateOtherInstances());
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas(
          {"[INFO] Found 3 VOSK process(es). Terminating others...",
           "[INFO] Successfully signaled termination for other VOSK instance (PID: 1004). Waiting "
           "briefly...",
           "[ERROR] Failed to open other VOSK process (PID: 1008) for termination. Error: 87",
           "[INFO] Attempted to terminate 1 other VOSK instance(s)."}));

  Bench refused;
  refused.host.processes.Add(u"VOSK.exe").open_error = platform::kInvalidParameter;
  EXPECT_TRUE(refused.control.TerminateOtherInstances());
  EXPECT_THAT(refused.log.Lines(),
              LogHas({"[WARN] Found other VOSK instances but failed to terminate any."}));
  refused.host.processes.Add(u"VOSK.exe").open_error = platform::kAccessDenied;
  EXPECT_FALSE(refused.control.TerminateOtherInstances());
  EXPECT_THAT(
      refused.log.Lines(),
      LogHas({"[WARN] Errors occurred while trying to terminate all other VOSK instances."}));
}

// An instance that has just handed over refuses to be ended: it is ending already.
TEST(TerminateOtherInstances, LetsGoOfAnInstanceThatEndsByItself) {
  for (const auto life : {100ms, 900ms}) {
    Bench bench;
    auto& other = bench.host.processes.Add(u"VOSK.exe");
    other.on_terminate = OnTerminate::access_denied;
    other.survives_taskkill = true;
    bench.host.At(life, [&other](SimulatedHost& at) { at.processes.End(other, 0); });
    EXPECT_EQ(bench.control.TerminateOtherInstances(), life == 100ms);
    EXPECT_THAT(bench.log.Lines(),
                LogHas({"[ERROR] Failed to terminate other VOSK process (PID: 1004). Error: 5"}));
  }
}

TEST(TerminateProcDumpInstances, TakesEveryNameThatBeginsSo) {
  Bench bench;
  const auto first = bench.host.processes.Add(u"ProcDump64.EXE").pid;
  const auto kept = bench.host.processes.Add(u"myprocdump.exe").pid;
  bench.host.processes.Add(u"procdump.exe").open_error = platform::kInvalidParameter;
  EXPECT_TRUE(bench.control.TerminateProcDumpInstances());
  EXPECT_FALSE(bench.host.processes.At(first).running);
  EXPECT_TRUE(bench.host.processes.At(kept).running);
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas(
          {"[INFO] TerminateProcDumpInstances: Found matching process: ProcDump64.EXE (PID: 1004)",
           "[INFO] TerminateProcDumpInstances: Attempting termination for 2 found process(es)...",
           "[INFO] TerminateProcDumpInstances: Termination signal sent successfully to PID 1004.",
           "[INFO] TerminateProcDumpInstances: Process PID 1012 likely already exited.",
           "[INFO] TerminateProcDumpInstances: Attempted termination for 1 process(es).",
           "[WARN] TerminateProcDumpInstances: Some instances may not have been terminated "
           "successfully."}));
}

TEST(TerminateProcDumpInstances, ReportsABrokenListAndGoesOn) {
  Bench bench;
  bench.host.processes.Add(u"procdump.exe").on_terminate = OnTerminate::access_denied;
  bench.host.FailNext("processes.Terminate", 6);
  EXPECT_FALSE(bench.control.TerminateProcDumpInstances());
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas({"[ERROR] TerminateProcDumpInstances: Failed to terminate process PID 1004 using "
              "TerminateProcessL.",
              "[WARN] TerminateProcDumpInstances: Errors occurred during termination "
              "attempts."}));
  bench.host.choke.faults.Add({.scope = "processes.Snapshot.Next", .first = 3, .code = 6});
  EXPECT_FALSE(bench.control.TerminateProcDumpInstances());
  EXPECT_FALSE(bench.host.processes.At(1004).running) << "what was found is still handled";
  bench.host.FailNext("processes.Snapshot.First", 18);
  EXPECT_TRUE(bench.control.TerminateProcDumpInstances());
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas({"[ERROR] TerminateProcDumpInstances: Process32NextW failed during enumeration. "
              "Error: 6",
              "[INFO] TerminateProcDumpInstances: No processes found."}));
}

}  // namespace
}  // namespace vosk::process
