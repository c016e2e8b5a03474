// The parts of the simulated system that no contract with the real one covers: virtual time,
// faults, the programs that it runs, its own sweeps.
#include "tests/support/checked_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "identity.h"
#include "tests/support/log_matchers.h"
#include "tests/support/sweep.h"

namespace vosk::support {
namespace {

using namespace std::chrono_literals;
using platform::ProcessHandle;
using testing::ElementsAre;
using testing::HasSubstr;

platform::StartedProcess StartCore(SimulatedHost& host) {
  auto started = host.processes.Start({.command_line = std::string(identity::kDefaultTargetPath)});
  EXPECT_TRUE(started);
  return std::move(*started);
}

platform::StartedProcess StartMonitor(SimulatedHost& host, platform::ProcessId target) {
  auto started = host.processes.Start({.command_line = "\"C:/VOSK/procdump64.exe\" -accepteula -mc "
                                                       "1064 -e " +
                                                       std::to_string(target) + " \"" +
                                                       host.DumpDirectory().string() + "\""});
  EXPECT_TRUE(started);
  return std::move(*started);
}

TEST(SimulatedHost, ACrashLeavesADumpAndEndsTheMonitor) {
  CheckedHost host;
  host.InstallCore();
  host.InstallMonitor({.dumps_per_crash = 2, .writing_time = 1s});
  host.At(10s, [](SimulatedHost& at) { at.CoreExits(0xC0000005); });

  const auto core = StartCore(host);
  const auto monitor = StartMonitor(host, core.pid);
  EXPECT_EQ(host.processes.WaitFor(core.handle, 1h), platform::WaitOutcome::finished);
  EXPECT_EQ(host.clock.Elapsed(), 10s);
  EXPECT_EQ(host.processes.ExitCode(core.handle), 0xC0000005u);
  EXPECT_THAT(host.NamesIn(host.DumpDirectory()), ElementsAre());
  host.clock.SleepFor(1s);
  EXPECT_THAT(
      host.NamesIn(host.DumpDirectory()),
      ElementsAre("VELDRAN Core.exe_250301_090011-1.dmp", "VELDRAN Core.exe_250301_090011.dmp"));
  EXPECT_EQ(host.processes.ExitCode(monitor.handle), 0u);
}

TEST(SimulatedHost, AnOrdinaryEndLeavesNoDump) {
  CheckedHost host;
  host.InstallCore();
  host.InstallMonitor();
  const auto core = StartCore(host);
  const auto monitor = StartMonitor(host, core.pid);
  host.CoreExits(3);
  EXPECT_EQ(host.processes.WaitFor(monitor.handle, 1s), platform::WaitOutcome::finished);
  EXPECT_THAT(host.NamesIn(host.DumpDirectory()), ElementsAre());
}

TEST(SimulatedHost, ACoreHasOneMonitorAtATime) {
  CheckedHost host;
  host.InstallCore();
  host.InstallMonitor();
  const auto core = StartCore(host);
  const auto first = StartMonitor(host, core.pid);
  const auto second = StartMonitor(host, core.pid);
  EXPECT_EQ(host.processes.WaitFor(second.handle, 1s), platform::WaitOutcome::finished);
  EXPECT_EQ(host.processes.ExitCode(second.handle), 1u);
  EXPECT_TRUE(host.processes.Terminate(first.handle, 0));
  const auto third = StartMonitor(host, core.pid);
  EXPECT_EQ(host.processes.WaitFor(third.handle, 1s), platform::WaitOutcome::timed_out);
}

TEST(SimulatedHost, ProcessesCanRefuseToBeOpenedOrToDie) {
  CheckedHost host;
  auto& stubborn = host.processes.Add(u"procdump.exe");
  const auto handle = host.processes.Open(platform::access::kTerminate, stubborn.pid);
  ASSERT_TRUE(handle);
  stubborn.on_terminate = OnTerminate::access_denied;
  EXPECT_EQ(host.processes.Terminate(*handle, 1).error(), platform::kAccessDenied);
  stubborn.on_terminate = OnTerminate::ignores;
  EXPECT_TRUE(host.processes.Terminate(*handle, 1));
  EXPECT_TRUE(stubborn.running);
  stubborn.survives_taskkill = true;
  const std::string taskkill = "taskkill /F /PID " + std::to_string(stubborn.pid);
  EXPECT_EQ(host.processes.RunShellCommand(taskkill), 1);
  stubborn.open_error = platform::kAccessDenied;
  EXPECT_EQ(host.processes.Open(platform::access::kTerminate, stubborn.pid).error(),
            platform::kAccessDenied);
}

TEST(SimulatedHost, ABrokenStreamTurnsBadHalfWay) {
  CheckedHost host;
  host.PutFile("core.log", std::string(100'000, 'x'));
  host.choke.faults.Add({.kind = FaultKind::broken_stream});
  const auto stream = host.files.OpenForReading("core.log");
  ASSERT_TRUE(stream);
  std::string bytes(40'000, '\0');
  EXPECT_TRUE((*stream)->read(bytes.data(), 40'000));
  EXPECT_FALSE((*stream)->read(bytes.data(), 40'000));
  EXPECT_TRUE((*stream)->bad());
}

TEST(SimulatedHost, TearDownFindsWhatWasLeftOpen) {
  // Never destroyed, as if the product had lost it.
  alignas(ProcessHandle) std::byte lost[sizeof(ProcessHandle)];
  EXPECT_NONFATAL_FAILURE(
      {
        CheckedHost host;
        auto own = host.processes.Open(platform::access::kSynchronize, host.processes.OwnId());
        new (lost) ProcessHandle(std::move(*own));
      },
      "handles left open");
  EXPECT_NONFATAL_FAILURE(
      {
        CheckedHost host;
        (void)host.system.InitializeCom();
      },
      "COM is not balanced");
  EXPECT_NONFATAL_FAILURE(
      {
        CheckedHost host;
        (void)host.console.SetCursorVisible(false);
      },
      "cursor");
}

TEST(SimulatedHost, EndlessLoopsRunOutOfCallsAndOutOfTime) {
  EXPECT_NONFATAL_FAILURE(
      {
        CheckedHost host;
        host.choke.SetCallBudget(100);
        EXPECT_THROW(while (true) host.clock.SteadyNow(), BudgetExceeded);
      },
      "100 calls");
  EXPECT_NONFATAL_FAILURE(
      {
        CheckedHost host;
        host.clock.SetBudget(1h);
        EXPECT_THROW(while (true) host.clock.SleepFor(1min), BudgetExceeded);
      },
      "3600 s");
}

// A product in miniature: moves a file and returns whether that worked.
bool MoveReport(SimulatedHost& host) {
  const auto there = host.files.Exists("report.zip");
  if (!there || !*there) return false;
  return host.files.Rename("report.zip", "sent.zip").has_value();
}

TEST(Sweep, FailsEveryCallInEveryWayItCan) {
  std::vector<std::string> seen;
  SweepFaults([&](SimulatedHost& host) {
    host.PutFile("report.zip", "zip");
    const bool moved = MoveReport(host);
    for (const FiredFault& fired : host.choke.faults.Fired()) {
      seen.push_back(fired.operation + ' ' + std::to_string(fired.fault.code));
    }
    EXPECT_EQ(moved, host.choke.faults.Fired().empty());
  });
  EXPECT_THAT(seen, ElementsAre("files.Exists 5", "files.Rename 32", "files.Rename 112",
                                "files.Rename 32"));
}

TEST(Sweep, NamesTheRunThatFailsAndHowToRepeatIt) {
  const auto sweep = [] {
    SweepFaults([](SimulatedHost& host) {
      host.PutFile("report.zip", "zip");
      (void)MoveReport(host);
      EXPECT_EQ(host.NamesIn("."), (std::vector<std::string>{"C:", "sent.zip"}));
    });
  };
  testing::TestPartResultArray failures;
  {
    const testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    sweep();
  }
  ASSERT_EQ(failures.size(), 2);
  EXPECT_THAT(failures.GetTestPartResult(1).message(),
              testing::AllOf(HasSubstr("files.Exists report.zip failed with 5"),
                             HasSubstr("VOSK_FAULT=fails:1 "),
                             HasSubstr("--gtest_filter=Sweep.NamesTheRun")));
}

TEST(SimulatedHost, AKilledVoskReachesNothingMore) {
  CheckedHost host;
  host.PutFile("C:/log.txt", "before");
  host.choke.faults.Add({.kind = FaultKind::killed, .scope = "files.CreateDirectories"});
  try {
    const auto log = host.files.OpenForAppending("C:/log.txt");
    struct AtItsEnd {
      platform::Files& files;
      ~AtItsEnd() { static_cast<void>(files.Remove("C:/log.txt")); }
    } const tidies{host.files};
    static_cast<void>(host.files.CreateDirectories("C:/new"));
    FAIL() << "VOSK goes on";
  } catch (const VoskEnded& ended) {
    EXPECT_EQ(ended.how, FaultKind::killed);
  }
  EXPECT_EQ(host.ReadFile("C:/log.txt"), "before");
  EXPECT_FALSE(std::filesystem::exists("C:/new"));
  host.VoskIsGone(1);
  host.VoskBegins();
  EXPECT_TRUE(host.files.CreateDirectories("C:/new"));
}

TEST(SimulatedHost, APowerCutEndsEverythingAndTakesWhatIsNotSettled) {
  const std::pair<AfterPowerCut, std::string> rows[] = {{AfterPowerCut::whole, "0123456789"},
                                                        {AfterPowerCut::cut_short, "01234"},
                                                        {AfterPowerCut::empty, ""}};
  for (const auto& [after, left] : rows) {
    CheckedHost host;
    host.PutFile("C:/old.txt", "settled");
    host.Settle();
    host.PutFile("C:/new.txt", "0123456789");
    const auto core = host.processes.Add(u"VELDRAN Core.exe").pid;
    bool written = false;
    host.clock.After(1s, [&] { written = true; });
    host.PowerIsGone(after);
    host.clock.Advance(2s);
    EXPECT_FALSE(written) << "whoever would have done it has ended";
    EXPECT_FALSE(host.processes.At(core).running);
    EXPECT_EQ(host.ReadFile("C:/old.txt"), "settled");
    EXPECT_EQ(host.ReadFile("C:/new.txt"), left);
  }
}

}  // namespace
}  // namespace vosk::support
