#include "process/process_control.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/log_matchers.h"
#include "tests/support/transcript.h"
#include "tests/support/variants.h"

namespace vosk::process {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogIs;
using support::LogRecorder;
using support::OnTerminate;
using support::SimulatedHost;
using testing::ElementsAre;

constexpr std::uint32_t kFullAccess = platform::access::kSynchronize |
                                      platform::access::kQueryInformation |
                                      platform::access::kTerminate;

std::string Survivors(SimulatedHost& host) {
  host.choke.faults.Clear();
  std::string names = "there run";
  for (platform::ProcessId pid = 1000; pid < 1100; pid += 4) {
    const auto open = host.processes.Open(platform::access::kQueryLimitedInformation, pid);
    if (open && host.processes.At(pid).running) names += fmt::format(" {}", pid);
  }
  return names;
}

TEST(ProcessControl, TellsOfEveryFaultOfASearch) {
  support::ExpectFaultTranscript(
      "process/searches.txt",
      {.arrange = [](SimulatedHost& host) { host.processes.Add(u"veldran CORE.exe"); },
       .act =
           [](SimulatedHost& host, console::LogSink& log) {
             ProcessControl control(host.processes, log);
             const auto cores = control.FindCoreProcesses();
             const auto selves = control.FindTargetProcessesByName(u"vosk.EXE");
             const bool granted = control.EnableDebugPriv();
             return fmt::format("cores {}, selves {}, granted {}, alive {}", fmt::join(cores, " "),
                                fmt::join(selves, " "), granted, control.IsProcessAlive(1004));
           }});
}

// The other one can only be ended by taskkill.
TEST(TerminateOtherInstances, TellsOfEveryFault) {
  support::ExpectFaultTranscript(
      "process/other_instances.txt",
      {.arrange =
           [](SimulatedHost& host) {
             host.processes.Add(u"vosk.EXE").on_terminate = OnTerminate::access_denied;
           },
       .act =
           [](SimulatedHost& host, console::LogSink& log) {
             const bool done = ProcessControl(host.processes, log).TerminateOtherInstances();
             return fmt::format("{}, {}", done, Survivors(host));
           }});
}

// The name may be that of any monitor, or even VOSK's own.
TEST(TerminateProcDumpInstances, TellsOfEveryFaultAndSparesItself) {
  support::ExpectFaultTranscript(
      "process/procdump_instances.txt",
      {.arrange =
           [](SimulatedHost& host) {
             host.VoskBegins(host.processes.Add(u"procdump.exe").pid);
             host.processes.Add(u"ProcDump64.EXE").on_terminate = OnTerminate::access_denied;
           },
       .act =
           [](SimulatedHost& host, console::LogSink& log) {
             const bool done = ProcessControl(host.processes, log).TerminateProcDumpInstances();
             return fmt::format("{}, {}", done, Survivors(host));
           }});
}

using Change = std::function<void(SimulatedHost&, support::SimProcess&)>;
using Kind = std::pair<std::string, Change>;

// Those that may not be what they look like, or may stay.
std::vector<Kind> DoubtfulKinds() {
  return {{"is another process by then",
           [](SimulatedHost& host, support::SimProcess& process) {
             host.choke.on_operation = [&process](auto operation, const std::string&) {
               if (operation == "processes.Open") process.executable_name = u"notepad.exe";
             };
           }},
          {"was started a moment later",
           [](SimulatedHost&, support::SimProcess& process) { process.started += 1ms; }},
          {"was started at a later time of a clock that was set back",
           [](SimulatedHost&, support::SimProcess& process) { process.started += 1h; }},
          {"was started in the same moment and has the smaller number",
           [](SimulatedHost& host, support::SimProcess& process) {
             if (process.executable_name != u"VOSK.exe") return;
             host.processes.End(host.processes.At(host.processes.OwnId()), 0);
             host.VoskBegins(host.processes.Add(u"VOSK.exe").pid);
           }}};
}

// A second VOSK and a monitor that take their end in the same way, beside a monitor that just goes.
TEST(ProcessControl, ClearsTheFieldOfEveryKindOfProcess) {
  const auto refuses = [](support::SimProcess& process) {
    process.on_terminate = OnTerminate::access_denied;
    process.survives_taskkill = true;
  };
  const auto ends_after = [&](support::Duration life) {
    return [=](SimulatedHost& host, support::SimProcess& process) {
      refuses(process);
      host.At(life, [&process](SimulatedHost& at) { at.processes.End(process, 0); });
    };
  };
  std::vector<Kind> rows = {
      {"goes at once", [](SimulatedHost&, support::SimProcess&) {}},
      {"has gone already",
       [](SimulatedHost&, support::SimProcess& process) {
         process.open_error = platform::kInvalidParameter;
       }},
      {"cannot be opened",
       [](SimulatedHost&, support::SimProcess& process) {
         process.open_error = platform::kAccessDenied;
       }},
      {"not even taskkill helps",
       [&](SimulatedHost&, support::SimProcess& process) { refuses(process); }},
      {"refuses and ends by itself", ends_after(100ms)},
      {"refuses and ends too late", ends_after(900ms)},
      {"lingers",
       [](SimulatedHost&, support::SimProcess& process) {
         process.on_terminate = OnTerminate::ignores;
       }},
      {"is not there",
       [](SimulatedHost& host, support::SimProcess& process) { host.processes.End(process, 0); }},
      {"VOSK is not listed",
       [](SimulatedHost& host, support::SimProcess& process) {
         host.processes.End(process, 0);
         host.processes.At(host.processes.OwnId()).executable_name = u"renamed.exe";
       }},
  };
  for (const Kind& kind : DoubtfulKinds()) rows.push_back(kind);
  support::Variants variants;
  for (const auto& [name, change] : rows) {
    CheckedHost host;
    LogRecorder log(host);
    ProcessControl control(host.processes, log.Sink());
    change(host, host.processes.Add(u"VOSK.exe"));
    const bool others = control.TerminateOtherInstances();
    change(host, host.processes.Add(u"procdump.exe"));
    host.processes.Add(u"myprocdump.exe");
    host.processes.Add(u"procdump-old");
    const bool monitors = control.TerminateProcDumpInstances();
    variants.Add(name, log.Lines(),
                 fmt::format("{} {} {}", others, monitors, host.clock.Elapsed().count()));
  }
  variants.Expect("process/kinds_of_processes.txt");
}

// The system accepts the request of an unprivileged user without granting the right.
class Unprivileged : public support::SimProcesses {
 public:
  using SimProcesses::SimProcesses;
  platform::PrivilegeAdjustment answer;
  platform::PrivilegeAdjustment EnablePrivilege(const platform::TokenHandle&,
                                                std::uint64_t) override {
    return answer;
  }
};

TEST(EnableDebugPriv, JudgesTheCallBeforeTheLastError) {
  CheckedHost host;
  LogRecorder log(host);
  Unprivileged processes(host.choke, host.clock);
  ProcessControl control(processes, log.Sink());
  processes.answer = {.accepted = true, .last_error = platform::kNotAllAssigned};
  EXPECT_TRUE(control.EnableDebugPriv());
  processes.answer = {.accepted = false, .last_error = platform::kSuccess};
  EXPECT_TRUE(control.EnableDebugPriv());
  const std::string success = "[INFO] EnableDebugPriv: SeDebugPrivilege adjustment succeeded.";
  EXPECT_THAT(log.Lines(), LogIs({success, success}));
}

TEST(ProcessControl, MakesNothingOfAHandleOrNameThatSaysNothing) {
  CheckedHost host;
  LogRecorder log(host);
  ProcessControl control(host.processes, log.Sink());
  EXPECT_EQ(control.TerminateProcessL({}, 1).error(), platform::kInvalidHandle);
  const platform::ProcessHandle invalid(platform::kInvalidHandleValue, host.processes);
  EXPECT_EQ(control.TerminateProcessL(invalid, 1).error(), platform::kInvalidHandle);
  auto& process = host.processes.Add(u"any.exe");
  const auto bare = host.processes.Open(platform::access::kSynchronize, process.pid);
  EXPECT_EQ(control.TerminateProcessL(*bare, 1).error(), platform::kAccessDenied);
  const auto blind = host.processes.Open(platform::access::kTerminate, process.pid);
  EXPECT_TRUE(control.TerminateProcessL(*blind, 259));
  EXPECT_FALSE(control.IsProcessAlive(999'999));
  EXPECT_TRUE(control.IsProcessAlive(process.pid)) << "the exit code alone decides";
  EXPECT_THAT(control.FindTargetProcessesByName(u""), ElementsAre());
  const std::string received = "[ERROR] TerminateProcessL: Received invalid process handle.";
  const std::string no_pid = "[ERROR] TerminateProcessL: Failed to get PID from handle. Error: 5";
  const std::string attempt =
      "[INFO] TerminateProcessL: Attempting termination via API for handle (PID unknown)";
  EXPECT_THAT(
      log.Lines(),
      LogIs({received, received, no_pid, attempt,
             "[ERROR] TerminateProcessL: TerminateProcess API failed. Error: 5",
             "[WARN] TerminateProcessL: Access denied with API. Attempting fallback using "
             "'taskkill /F'...",
             "[ERROR] TerminateProcessL: Cannot use taskkill fallback because PID is unknown.",
             no_pid, attempt,
             "[INFO] TerminateProcessL: TerminateProcess API succeeded for PID: Handle",
             "[ERROR] FindTargetProcessesByName: Provided target name is empty."}));
}

}  // namespace
}  // namespace vosk::process
