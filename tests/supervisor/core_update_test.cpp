// When the Core and VOSK are updated, and what is left running afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/supervisor/life.h"

namespace vosk::supervisor {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogHas;
using support::LogLacks;
using support::LogOf;
using support::LogText;
using support::SimulatedHost;

constexpr char kInstalledVosk[] = "C:/Program Files/VELDRAN Inc/VELDRAN Core/VOSK.exe";
constexpr char16_t kSelfName[] = u"VOSK.exe";

// Release 1.2.2 is installed, VOSK runs from it, and 1.2.3 can be downloaded.
void FurnishRelease(SimulatedHost& host, SimServers& network) {
  host.clock.SetBudget(2h);
  host.system.module_path = kInstalledVosk;
  host.Furnish();
  host.installer.Install(
      {.product_code = "{11111111-1111-1111-1111-111111111111}", .version = "1.2.2"},
      std::filesystem::path(kInstalledVosk).parent_path());
  host.PutFile(host.system.roaming_path / "VELDRAN/stats/TestNet/CoreVersion.txt", "1.2.2\r\n");
  network.PublishPackage({.version = "1.2.3"});
}

int CountLines(const SimulatedHost& host, const std::string& line) {
  return static_cast<int>(std::ranges::count(LogOf(host), line));
}

void ExpectHandedOver(SimulatedHost& host, std::size_t cores = 0) {
  EXPECT_EQ(SimulatedHost::ReadFile(kInstalledVosk), "MZ of 1.2.3");
  EXPECT_EQ(host.processes.Running(kSelfName).size(), 2u) << "this one and its successor";
  EXPECT_EQ(host.processes.Running(kCoreName).size(), cores) << "the successor's to launch";
  EXPECT_TRUE(host.processes.Running(kMonitorName).empty());
  const LogText log = LogOf(host);
  EXPECT_EQ(log.back(), "[INFO] ----------------------------------------------------");
}

TEST(CoreUpdate, StartUpDecidesByTheTwoVersions) {
  struct Row {
    std::string installed;
    std::string latest;
    LogText lines;
  };
  const Row rows[] = {
      {"1.2.3", "", {"[WARN] Startup update check: Could not fetch latest version. Skipping."}},
      {"",
       "1.2.3",
       {"[WARN] Could not read current version from file or file empty. Update check will assume "
        "version '0.0.0'.",
        "[INFO] Startup update check: Current version unknown (0.0.0). Skipping update to avoid "
        "reinstall before first run."}},
      {"1.2.3", "1.2.3", {"[INFO] Startup update check: Already running latest version (1.2.3)."}},
      {"1.10.0",
       "1.9.9",
       {"[INFO] Startup update check: Current version (1.10.0) is newer than API reports (1.9.9). "
        "No update needed."}},
      {"1.2.3",
       "latest",
       {"[WARN] Startup update check: Could not parse version strings for comparison."}},
      {"1.2.3",
       "1.2.4",
       {"[WARN] Startup update check: Newer version available! Current: 1.2.3, Latest: 1.2.4. "
        "Updating before monitoring starts.",
        "[WARN] --- Starting Update Sequence to Version 1.2.4 ---",
        "[WARN] Startup update: Update sequence did not fully succeed. Proceeding with current "
        "version."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.installed + " / " + row.latest);
    CheckedHost host;
    host.Furnish();
    host.PutFile(host.system.roaming_path / "VELDRAN/stats/TestNet/CoreVersion.txt", row.installed);
    SimServers network(host);
    network.latest_version = row.latest;
    EXPECT_EQ(LiveOnce(host, network, {.quit_at = 20s}), 0);
    LogText lines{"[INFO] --- Startup Update Check ---"};
    if (row.installed.empty()) lines.insert(lines.begin(), row.lines.front());
    lines.insert(lines.end(), row.lines.begin() + (row.installed.empty() ? 1 : 0), row.lines.end());
    lines.emplace_back("[INFO] --- Startup Update Check Complete ---");
    lines.emplace_back("[INFO] VELDRAN Core relaunched successfully.");
    EXPECT_THAT(LogOf(host), LogHas(lines));
  }
}

TEST(CoreUpdate, AtStartUpTheSuccessorTakesOverBeforeAnythingIsLaunched) {
  CheckedHost host;
  SimServers network(host);
  FurnishRelease(host, network);
  network.latest_version = "1.2.3";
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1h}), 0);
  ExpectHandedOver(host);
  EXPECT_THAT(LogOf(host),
              LogHas({"[INFO] Startup update: New VOSK launched. Exiting this instance.",
                      "[INFO] --- Startup Update Check Complete ---",
                      "[WARN] Monitoring loop terminated (g_terminateMonitoring is true)."}));
  EXPECT_THAT(LogOf(host), LogLacks("Attempting relaunch"));
}

TEST(CoreUpdate, ANewReleaseReplacesTheRunningCore) {
  CheckedHost host;
  SimServers network(host);
  FurnishRelease(host, network);
  network.latest_version = "1.2.2";
  host.At(6min, [&](SimulatedHost&) { network.latest_version = "1.2.3"; });
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1h}), 0);
  ExpectHandedOver(host);
  EXPECT_EQ(network.version_queries, 3) << "at start, after 5 and after 10 minutes";
  EXPECT_EQ(CountLines(host, "[INFO] Current version 1.2.2 is up-to-date."), 1);
  EXPECT_THAT(LogOf(host),
              LogHas({"[INFO] ProcDump monitor started for new target PID 1004",
                      "[INFO] Sufficient disk space available. Proceeding with update.",
                      "[WARN] Newer version detected! Current: 1.2.2, Latest: 1.2.3. Initiating "
                      "self-update sequence.",
                      "[INFO] Pre-Update Validation: Verifying state before proceeding...",
                      "[INFO] Pre-Update: Target process PID 1004 confirmed running.",
                      "[INFO] Pre-Update: ProcDump process (PID: 1008) confirmed running.",
                      "[INFO] --- Update Sequence Finished (Overall Success: Yes) ---",
                      "[WARN] Monitoring loop terminated (g_terminateMonitoring is true)."}));
  EXPECT_THAT(LogOf(host), LogLacks("exited abnormally"));
}

TEST(CoreUpdate, AFailedUpdateLeavesAWatchedCoreAndIsTriedAgain) {
  CheckedHost host;
  SimServers network(host);
  FurnishRelease(host, network);
  const auto good = std::exchange(network.downloads, {});
  network.latest_version = "1.2.2";
  host.At(200s, [&](SimulatedHost&) { network.latest_version = "1.2.3"; });
  std::size_t cores = 0;
  std::size_t monitors = 0;
  host.At(310s, [&](SimulatedHost& at) {
    cores = at.processes.Running(kCoreName).size();
    monitors = at.processes.Running(kMonitorName).size();
    network.downloads = good;
  });
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1h}), 0);
  EXPECT_EQ(cores, 1u);
  EXPECT_EQ(monitors, 1u);
  EXPECT_GE(CountLines(host,
                       "[ERROR] Update sequence did not complete successfully or failed to "
                       "launch new VOSK."),
            2);
  ExpectHandedOver(host);
}

TEST(CoreUpdate, ACoreThatOutlivesTheUpdateIsWatchedAgain) {
  CheckedHost host;
  SimServers network(host);
  FurnishRelease(host, network);
  network.latest_version = "1.2.2";
  host.At(280s, [&](SimulatedHost& at) {
    network.latest_version = "1.2.3";
    at.processes.Running(kCoreName).at(0)->on_terminate = support::OnTerminate::ignores;
  });
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1h}), 0);
  EXPECT_THAT(LogOf(host),
              LogHas({"[ERROR] Update Error: Target Core process (PID: 1004) did not terminate "
                      "within timeout! Aborting update.",
                      "[INFO] Successfully attached to existing PID 1004. Starting monitoring."}));
  ExpectHandedOver(host);
}

TEST(CoreUpdate, ACoreThatAFailedUpdateEndedIsLaunchedBeforeTheNextAttempt) {
  CheckedHost host;
  SimServers network(host);
  FurnishRelease(host, network);
  network.latest_version = "1.2.2";
  host.At(200s, [&](SimulatedHost& at) {
    network.latest_version = "1.2.3";
    at.FailNext("files.Rename", 32);
  });
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1h}), 0);
  ExpectHandedOver(host);
  EXPECT_THAT(LogOf(host),
              LogHas({"[ERROR] Update Step 6/7: Failed to rename self! Aborting update.",
                      "[INFO] VELDRAN Core relaunched successfully.",
                      "[INFO] ProcDump monitor started for new target PID 1012",
                      "[WARN] --- Starting Update Sequence to Version 1.2.3 ---"}));
}

TEST(CoreUpdate, TheMenuReinstallsWhateverTheVersion) {
  CheckedHost host;
  SimServers network(host);
  FurnishRelease(host, network);
  // The successor's Core is none of the old one's business.
  host.installer.on_installed = [&host](const auto&) { host.processes.Add(kCoreName); };
  host.PutFile(host.system.roaming_path / "VELDRAN/stats/TestNet/CoreVersion.txt", "1.2.3");
  network.latest_version = "1.2.3";
  host.At(20s, [](SimulatedHost& at) { ChooseItem(at, 5); });
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1h}), 0);
  ExpectHandedOver(host, /*cores=*/1);
  EXPECT_THAT(LogOf(host),
              LogHas({"[WARN] Menu: Force reinstall of VELDRAN Core requested.",
                      "[INFO] Menu: Latest version reported by network: 1.2.3",
                      "[WARN] --- Starting Update Sequence to Version 1.2.3 ---",
                      "[INFO] --- Update Sequence Finished (Overall Success: Yes) ---"}));
}

TEST(CoreUpdate, TheMenuTellsWhyItDoesNotReinstall) {
  for (const bool server_answers : {false, true}) {
    CheckedHost host;
    SimServers network(host);
    FurnishRelease(host, network);
    network.downloads.clear();
    host.At(20s, [&](SimulatedHost& at) {
      network.latest_version = server_answers ? "1.2.2" : "";
      ChooseItem(at, 5);
    });
    std::size_t cores = 0;
    host.At(30s, [&](SimulatedHost& at) { cores = at.processes.Running(kCoreName).size(); });
    EXPECT_EQ(LiveOnce(host, network, {.quit_at = 60s}), 0);
    EXPECT_EQ(cores, 1u);
    EXPECT_THAT(
        LogOf(host),
        LogHas({server_answers
                    ? "[ERROR] Menu: Force reinstall failed. Will continue with current "
                      "installation."
                    : "[ERROR] Menu: Could not fetch latest version from network. Reinstall "
                      "aborted."}));
  }
}

}  // namespace
}  // namespace vosk::supervisor
