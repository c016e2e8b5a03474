// The Core is kept running and watched, whatever the system answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/supervisor/life.h"

namespace vosk::supervisor {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogHas;
using support::LogLacks;
using support::LogOf;
using support::SimulatedHost;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Monitoring, ARunningCoreIsAdoptedWithoutARestart) {
  CheckedHost host;
  host.Furnish();
  const auto pid = host.processes.Add(kCoreName).pid;
  const auto twin = host.processes.Add(kCoreName).pid;
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 32s});
  EXPECT_EQ(EverStarted(host, kCoreName), 2u);
  EXPECT_TRUE(host.processes.At(twin).running);
  EXPECT_THAT(
      LogOf(host),
      LogHas({"[WARN] Multiple instances of 'VELDRAN Core.exe' found. Monitoring first detected "
              "(PID: " +
                  std::to_string(pid) + ").",
              "[INFO] Found existing instance of target (PID: " + std::to_string(pid) + ").",
              "[INFO] Successfully attached to existing PID " + std::to_string(pid) +
                  ". Starting monitoring."}));
}

TEST(Monitoring, TellsEvery15SecondsThatTheCoreRuns) {
  CheckedHost host;
  host.Furnish();
  host.console.understands_escapes = false;
  host.processes.Add(kCoreName);
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 40s});
  EXPECT_THAT(LogOf(host), LogHas({"[INFO] Target PID 1004 running for: 0s. Crash count: 0",
                                   "[INFO] Target PID 1004 running for: 15s. Crash count: 0",
                                   "[INFO] Target PID 1004 running for: 30s. Crash count: 0"}));
  EXPECT_THAT(LogOf(host), LogLacks("running for: 14s"));
}

TEST(Monitoring, ACoreWithoutMonitorIsEndedAndTriedAgain) {
  CheckedHost host;
  host.Furnish();
  host.At(4s, [](SimulatedHost&) {
    std::filesystem::rename("C:/VOSK/procdump64.exe", "C:/VOSK/elsewhere.exe");
  });
  host.At(20s, [](SimulatedHost&) {
    std::filesystem::rename("C:/VOSK/elsewhere.exe", "C:/VOSK/procdump64.exe");
  });
  std::size_t unwatched = 9;
  host.At(19s, [&](SimulatedHost& at) { unwatched = at.processes.Running(kCoreName).size(); });
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 30s});
  EXPECT_EQ(unwatched, 0u);
  EXPECT_THAT(LogOf(host),
              LogHas({"[ERROR] ProcDump executable not found in application directory: Checked "
                      "C:/VOSK/procdump64.exe and fallback.",
                      "[ERROR] Successfully relaunched target PID 1004, but FAILED to launch "
                      "ProcDump monitor!",
                      "[WARN] Crash dump generation will NOT occur.",
                      "[ERROR] Terminating the newly launched target process.",
                      "[INFO] Attempting relaunch of VELDRAN Core after 5000ms delay...",
                      "[INFO] ProcDump monitor started for new target PID 1012"}));
}

TEST(Monitoring, ACoreThatIsRefusedToUsGetsNoTwin) {
  CheckedHost host;
  host.Furnish();
  auto& core = host.processes.Add(kCoreName);
  core.open_error = platform::kAccessDenied;
  host.At(20s, [&core](SimulatedHost&) { core.open_error.reset(); });
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 30s});
  EXPECT_EQ(EverStarted(host, kCoreName), 1u);
  const std::string pid = std::to_string(core.pid);
  EXPECT_THAT(
      LogOf(host),
      LogHas(
          {"[ERROR] Found running PID " + pid +
               ", but failed to open handle. Error: 5. Cannot monitor.",
           "[WARN] VELDRAN Core is already running (PID: " + pid + "). Not launching another one.",
           "[INFO] Successfully attached to existing PID " + pid + ". Starting monitoring."}));
}

TEST(Monitoring, AMonitorThatLeavesItsCoreIsReplaced) {
  CheckedHost host;
  host.Furnish();
  host.At(20s, [](SimulatedHost& at) {
    at.processes.End(*at.processes.Running(kMonitorName).front(), 7);
  });
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 30s});
  EXPECT_EQ(EverStarted(host, kMonitorName), 2u);
  EXPECT_EQ(EverStarted(host, kCoreName), 1u);
  EXPECT_THAT(LogOf(host),
              LogHas({"[WARN] ProcDump monitor of PID 1004 has ended (exit code 7) although the "
                      "target is running.",
                      "[WARN] Target PID 1004 is not watched. Attaching a new ProcDump monitor.",
                      "[INFO] Launching ProcDump monitor for PID 1004: \"C:/VOSK/procdump64.exe\" "
                      "-accepteula -mc 1064 -e 1004 \"" +
                          host.DumpDirectory().string() + "\""}));
}

TEST(Monitoring, ACoreThatAnotherDebuggerHoldsIsAskedForEverMoreSeldom) {
  CheckedHost host;
  host.Furnish({.leaves_at_once = true});
  host.choke.SetCallBudget(5'000'000);
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 3h});
  EXPECT_EQ(EverStarted(host, kCoreName), 1u);
  // After 0, 5, 15, 35... seconds, then every hour.
  EXPECT_GE(EverStarted(host, kMonitorName), 10u);
  EXPECT_LE(EverStarted(host, kMonitorName), 13u);
}

TEST(Monitoring, ANewCoreDoesNotInheritThePatienceWithTheLast) {
  CheckedHost host;
  host.Furnish({.leaves_at_once = true});
  host.processes.Add(kCoreName);
  host.At(15min, [](SimulatedHost& at) {
    at.InstallMonitor();
    ChooseItem(at, 1);
  });
  host.At(16min, [](SimulatedHost& at) {
    at.processes.End(*at.processes.Running(kMonitorName).front(), 7);
  });
  std::size_t monitors = 0;
  host.At(16min + 10s,
          [&](SimulatedHost& at) { monitors = at.processes.Running(kMonitorName).size(); });
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 17min});
  EXPECT_EQ(monitors, 1u);
}

TEST(Monitoring, TheScreenFollowsTheWindow) {
  CheckedHost host;
  host.Furnish();
  host.At(10s, [](SimulatedHost& at) {
    at.console.Forget();
    at.console.info.bottom = at.console.info.top + 9;
  });
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 12s});
  EXPECT_THAT(host.console.Text(), HasSubstr("\x1b[1;9r\x1b[9;1H"));
  EXPECT_THAT(host.console.Text(), HasSubstr("\x1b[r\x1b[2J\x1b[H")) << "given back in the end";
}

TEST(Monitoring, AnIdleDayLogsOnlyThatTheCoreRuns) {
  CheckedHost host;
  host.Furnish();
  host.choke.SetCallBudget(5'000'000);
  host.processes.Add(kCoreName);
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 6h});
  const auto log = LogOf(host);
  // Four lines a minute, one for each check for updates, and the start and the end.
  EXPECT_LT(log.size(), 6u * 60 * 4 + 6 * 12 + 100);
}

}  // namespace
}  // namespace vosk::supervisor
