// What the operator's keys do, told by the log of whole lives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/supervisor/life.h"
#include "tests/support/sweep.h"
#include "tests/support/terminal.h"

namespace vosk::supervisor {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogLacks;
using support::LogOf;
using support::LogText;
using support::SimulatedHost;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kLoopBegins[] = "[INFO] ------------------ Monitoring Active -------------------";

// From one line to another, both included.
LogText Passage(const LogText& log, const std::string& first, const std::string& last) {
  const auto begin = std::find(log.begin(), log.end(), first);
  auto end = std::find(begin, log.end(), last);
  if (end != log.end()) ++end;
  return {begin, end};
}

// The lines that tell of the operator, once the loop runs.
LogText OperatorLines(const SimulatedHost& host) {
  LogText lines;
  for (const std::string& line : Passage(LogOf(host), kLoopBegins, "")) {
    for (const char* mark : {"Menu: ", "Quit signal", "Version", "RED ALERT", "Re-attaching"}) {
      if (line.find(mark) == std::string::npos) continue;
      lines.push_back(line);
      break;
    }
  }
  return lines;
}

const LogText kVersions = {"[INFO] === Version Information ===", "[INFO] VOSK Version: 3.3",
                           "[INFO] VELDRAN Core Version: Not detected or not running"};
constexpr char kRestartRefused[] = "[WARN] Menu: Restart requested, but Core not running.";
constexpr char kQuitItem[] = "[WARN] Menu: Quit VOSK & VELDRAN Core requested.";

// The quit that ends every life tells whether the menu was open, the Enter key what was selected.
TEST(ControlMenu, EachKeyDoesWhatItSays) {
  const LogText from_log = {"[WARN] Quit signal received by user. Shutting down..."};
  const LogText from_menu = {"[WARN] Menu: Quit VOSK & VELDRAN Core requested via 'Q'.", kQuitItem};
  constexpr int kEscape = 27;
  constexpr int kKeypad = 0;
  constexpr int kPageUp = 73;
  constexpr int kRight = 77;
  constexpr int kPageDown = 81;
  static_assert(kRight == 'M' && kPageDown == 'Q');
  struct Row {
    std::vector<int> keys;
    LogText then;  // before the quit
    LogText quit;
  };
  const Row rows[] = {
      {{}, {}, from_log},
      {{'m'}, {}, from_menu},
      {{'M'}, {}, from_menu},
      {{'m', 'M'}, {}, from_log},
      {{'M', 'm', 'm'}, {}, from_menu},
      {{'Q', 'm', kEnter}, {}, from_log},
      {{'m', 'Q', 'x'}, {}, from_menu},
      {{'x', kEnter, kEscape, kArrow, kUp, kKeypad, kDown, kArrow, kRight}, {}, from_log},
      {{kArrow, kPageDown, 'm'}, {}, from_menu},
      {{kArrow}, {}, from_log},
      {{'m', kArrow}, {}, from_menu},
      {{'m', kEnter, kEnter}, {kRestartRefused}, from_log},
      {{'m', kArrow, kUp, kEnter}, {kRestartRefused}, from_log},
      {{'m', kArrow, kPageUp, kKeypad, kRight, 'x', kEscape, kEnter}, {kRestartRefused}, from_log},
      {{'m', kArrow, kDown, kEnter}, {}, {kQuitItem}},
      {{'m', kArrow, kDown, 'm', 'm', kEnter}, {kRestartRefused}, from_log},
      {{'m', kKeypad, kDown, kArrow, kDown, kEnter}, kVersions, from_log},
      {{'m', kArrow, kDown, kArrow, kDown, kKeypad, kUp, kEnter}, {}, {kQuitItem}},
      {{'m', kArrow, kDown, kArrow, kDown, kArrow, kDown, kEnter},
       {"[ERROR] Menu: Cannot submit diagnostic report - VELDRAN Core is not running."},
       from_log},
      {{'m', kArrow, kDown, kArrow, kDown, kArrow, kDown, kArrow, kDown, kArrow, kDown, kArrow,
        kDown, kArrow, kDown, kEnter},
       {"[WARN] RED ALERT MODE ACTIVATED - Full heap dumps (-ma) will be captured on crash."},
       from_log},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.keys));
    CheckedHost host;
    host.Furnish();
    // A Core that VOSK may not open is none that it could act on.
    host.processes.Add(kCoreName).open_error = platform::kAccessDenied;
    for (const int key : row.keys) host.KeyPressed(key);
    SimServers network(host);
    EXPECT_EQ(LiveOnce(host, network, {.quit_at = 3min}), 0);
    LogText expected = row.then;
    expected.insert(expected.end(), row.quit.begin(), row.quit.end());
    EXPECT_THAT(OperatorLines(host), LogIs(expected));
  }
}

TEST(ControlMenu, StandsInTheLogsPlaceWhileItIsOpen) {
  CheckedHost host;
  host.Furnish();
  host.processes.Add(kCoreName);
  support::Terminal terminal(host.console.info.Width(), host.console.info.Height());
  const auto screen_at = [&](support::Duration time, const testing::Matcher<std::string>& shown) {
    host.At(time, [&terminal, shown, time](SimulatedHost& at) {
      terminal.Write(at.console.Text());
      at.console.Forget();
      EXPECT_THAT(support::ScreenText(terminal), shown) << "at " << time / 1s << " s";
      EXPECT_THAT(terminal.RowText(terminal.Rows()), HasSubstr("Core: 1004"));
    });
  };
  const auto press_at = [&](support::Duration time, std::deque<int> keys) {
    host.At(time, [keys](SimulatedHost& at) { at.console.keys = keys; });
  };
  screen_at(19s, Not(HasSubstr("VOSK Control Menu")));
  press_at(20s, {'m'});
  screen_at(21s, AllOf(HasSubstr("VOSK Control Menu"), HasSubstr(" > 1. Restart")));
  press_at(22s, {kArrow, kDown});
  screen_at(23s, AllOf(HasSubstr("   1. Restart"), HasSubstr(" > 2. Quit VOSK")));
  // The line of the running Core came meanwhile.
  screen_at(36s, AllOf(HasSubstr(" > 2. Quit VOSK"), HasSubstr("running for: 30s")));
  press_at(37s, {'m'});
  screen_at(38s, Not(HasSubstr("VOSK Control Menu")));
  screen_at(50s, HasSubstr("running for: 45s"));
  SimServers network(host);
  LiveOnce(host, network);
}

// Everything from the decision to the watched Core, for the Core 1004 and its monitor 1008.
LogText RestartPassage(const SimulatedHost& host, const std::string& reason) {
  return {"[WARN] Initiating graceful restart: " + reason,
          "[INFO] Restart: Terminating current VELDRAN Core (PID: 1004) and ProcDump...",
          "[INFO] TerminateProcessL: Attempting termination via API for handle (PID: 1008)",
          "[INFO] TerminateProcessL: TerminateProcess API succeeded for PID: 1008",
          "[INFO] TerminateProcessL: Attempting termination via API for handle (PID: 1004)",
          "[INFO] TerminateProcessL: TerminateProcess API succeeded for PID: 1004",
          "[INFO] Restart: Resetting monitoring state.",
          "[INFO] Restart: Termination complete. Relaunch will occur on next cycle.",
          "[INFO] --- Target process is not running ---",
          "[INFO] Crash Count So Far: 0",
          "[INFO] Attempting relaunch of VELDRAN Core after 5000ms delay...",
          "[INFO] Executing Command Line: "
          "C:/Program Files/VELDRAN Inc/VELDRAN Core/VELDRAN Core.exe",
          "[INFO] Working Directory: C:/Program Files/VELDRAN Inc/VELDRAN Core",
          "[INFO] VELDRAN Core relaunched successfully.",
          "[INFO] Captured 0 runtime modules from target process",
          "[INFO] New Target Process PID: 1012",
          "[INFO] Using primary ProcDump executable: C:/VOSK/procdump64.exe",
          "[INFO] Launching ProcDump monitor for PID 1012: \"C:/VOSK/procdump64.exe\" -accepteula "
          "-mc 1064 -e 1012 \"" +
              host.DumpDirectory().string() + "\"",
          "[INFO] ProcDump launched successfully. Monitor Process ID: 1016",
          "[INFO] ProcDump monitor started for new target PID 1012"};
}

TEST(ControlMenu, ARestartEndsTheMonitorThenTheCoreAndIsNoCrash) {
  CheckedHost host;
  host.Furnish();
  host.console.understands_escapes = false;
  host.At(20s, [](SimulatedHost& at) { ChooseItem(at, 1); });
  SimServers network(host);
  LiveOnce(host, network);
  EXPECT_THAT(OperatorLines(host),
              Contains("[WARN] Menu: Forced restart of VELDRAN Core requested."));
  const LogText expected = RestartPassage(host, "Forced by User via Menu");
  EXPECT_THAT(Passage(LogOf(host), expected.front(), expected.back()), LogIs(expected));
  EXPECT_THAT(LogOf(host), LogLacks("has terminated"));
}

TEST(ControlMenu, TheScheduleRestartsACoreThatHasRunForMoreThan12Hours) {
  CheckedHost host;
  host.Furnish();
  host.console.understands_escapes = false;
  std::vector<support::Duration> started;
  host.InstallCore("C:/Program Files/VELDRAN Inc/VELDRAN Core/VELDRAN Core.exe",
                   [&](support::SimProcess&) {
                     started.push_back(host.clock.Elapsed());
                     // The machine sleeps for most of the time.
                     if (started.size() > 1) return;
                     host.clock.After(10s, [&] { host.clock.Advance(12h - 20s); });
                   });
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 12h + 1min});
  ASSERT_THAT(started, SizeIs(2));
  EXPECT_EQ(started[1] - started[0], 12h + 500ms + 5s) << "one cycle later, after the usual delay";
  EXPECT_THAT(LogOf(host), LogHas({"[WARN] Scheduled restart triggered. Uptime (12h 0m 0s) "
                                   "exceeded interval (12 hours)."}));
  const LogText expected = RestartPassage(host, "Scheduled Interval");
  EXPECT_THAT(Passage(LogOf(host), expected.front(), expected.back()), LogIs(expected));
  EXPECT_THAT(LogOf(host), LogLacks("has terminated"));
}

TEST(ControlMenu, QuitEndsTheCoreAsWell) {
  CheckedHost host;
  host.Furnish();
  host.At(20s, [](SimulatedHost& at) { ChooseItem(at, 2); });
  SimServers network(host);
  EXPECT_EQ(LiveOnce(host, network), 0);
  EXPECT_LT(host.clock.Elapsed(), 25s);
  EXPECT_THAT(host.processes.Running(kCoreName), SizeIs(0));
  EXPECT_THAT(host.processes.Running(kMonitorName), SizeIs(0));
}

TEST(ControlMenu, VersionInformationNamesBoth) {
  CheckedHost host;
  host.Furnish();
  host.PutFile(host.system.roaming_path / "VELDRAN/stats/TestNet/CoreVersion.txt", "1.4.2b\n");
  host.At(20s, [](SimulatedHost& at) { ChooseItem(at, 3); });
  SimServers network(host);
  LiveOnce(host, network);
  EXPECT_THAT(LogOf(host), LogHas({"[INFO] === Version Information ===", "[INFO] VOSK Version: 3.3",
                                   "[INFO] VELDRAN Core Version: 1.4.2b",
                                   "[INFO] ==========================="}));
}

TEST(ControlMenu, RedAlertAttachesAnewAndMarksTheNextReports) {
  CheckedHost host;
  host.Furnish();
  host.processes.Add(kCoreName);
  const auto toggle = [](SimulatedHost& at) { ChooseItem(at, 6); };
  const std::string directory = host.DumpDirectory().string();
  host.At(20s, toggle);
  host.At(24s, [](SimulatedHost& at) { at.CoreExits(kAccessViolation); });
  host.At(50s, toggle);
  host.At(55s, toggle);
  SimServers network(host);
  LiveOnce(host, network);
  EXPECT_THAT(network.ReceivedNames(),
              ElementsAre("VELDRAN Core.exe_250301_090025_RIG-7_CRASH_FD.zip"));
  const auto& monitors = host.processes;
  EXPECT_THAT(
      LogOf(host),
      LogHas({"[WARN] RED ALERT MODE ACTIVATED - Full heap dumps (-ma) will be captured on crash.",
              "[INFO] Re-attaching ProcDump monitor with FULL MEMORY (-ma) dump settings...",
              "[WARN] RED ALERT: Attaching ProcDump in full-memory (-ma) mode for PID 1004",
              "[INFO] Launching ProcDump monitor for PID 1004: \"C:/VOSK/procdump64.exe\" "
              "-accepteula -ma -e 1004 \"" +
                  directory + "\"",
              "[INFO] ProcDump monitor re-attached successfully.",
              "[ERROR] Target process exited abnormally (Code: 3221225477). Assuming crash #1",
              "[INFO] VELDRAN Core relaunched successfully.",
              "[INFO] Launching ProcDump monitor for PID 1016: \"C:/VOSK/procdump64.exe\" "
              "-accepteula -ma -e 1016 \"" +
                  directory + "\"",
              "[INFO] Red Alert Mode DEACTIVATED - Returning to normal dump mode (-mc 1064).",
              "[INFO] Re-attaching ProcDump monitor with normal (-mc 1064) dump settings...",
              "[INFO] ProcDump monitor re-attached successfully.",
              "[WARN] RED ALERT MODE ACTIVATED - Full heap dumps (-ma) will be captured on "
              "crash."}));
  // The next VOSK begins in normal mode again.
  LiveOnce(host, network, {.quit_at = 90s});
  EXPECT_THAT(monitors.Table().rbegin()->second.command_line, HasSubstr(" -mc 1064 -e "));
}

TEST(ControlMenu, ACoreThatRedAlertLeavesUnwatchedIsWatchedSoon) {
  CheckedHost host;
  host.Furnish();
  host.At(20s, [](SimulatedHost& at) {
    at.FailNext("processes.Start", 8);
    ChooseItem(at, 6);
  });
  SimServers network(host);
  LiveOnce(host, network);
  EXPECT_THAT(
      LogOf(host),
      LogHas({"[ERROR] Failed to re-attach ProcDump monitor. Crash dumps may not be captured.",
              "[WARN] Target PID 1004 is not watched. Attaching a new ProcDump monitor."}));
}

// Whichever call fails once the operator begins: the Core ends up running and watched, the console
// as it was found, and a report that did not come out is told of.
TEST(ControlMenu, SurvivesEveryFault) {
  const auto sequence = [](SimulatedHost& host) {
    host.Furnish();
    host.processes.Add(kCoreName);
    host.At(6s, [](SimulatedHost& at) { ChooseItem(at, 4); });
    host.At(8s, [](SimulatedHost& at) { ChooseItem(at, 6); });
    host.At(10s, [](SimulatedHost& at) { ChooseItem(at, 1); });
    std::size_t faults_with_time_to_heal = 0;
    host.At(18s,
            [&](SimulatedHost& at) { faults_with_time_to_heal = at.choke.faults.Fired().size(); });
    std::size_t cores = 0;
    std::size_t monitors = 0;
    host.At(30s, [&](SimulatedHost& at) {
      cores = at.processes.Running(kCoreName).size();
      monitors = at.processes.Running(kMonitorName).size();
    });
    host.clock.SetBudget(30min);
    SimServers network(host);
    // A Core that cannot be launched is repaired.
    network.PublishPackage({.version = "1.2.3", .install_time = 1s});
    EXPECT_EQ(LiveOnce(host, network, {.quit_at = 31s}), 0);
    if (host.choke.faults.Fired().size() == faults_with_time_to_heal) {
      EXPECT_EQ(cores, 1u) << "healed in good time";
      EXPECT_EQ(monitors, 1u) << "never unwatched for long";
    }
    if (network.received.empty()) {
      EXPECT_THAT(LogOf(host),
                  Contains(AllOf(StartsWith("[ERROR]"), HasSubstr(" diagnostic report"))));
    }
  };
  support::SweepFaults(sequence, {.from = 5500ms});
}

}  // namespace
}  // namespace vosk::supervisor
