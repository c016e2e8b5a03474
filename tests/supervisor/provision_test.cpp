// What start-up fetches, makes room for and installs, and how a Core that cannot be launched is
// repaired.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "identity.h"
#include "simulation/zip_bytes.h"
#include "tests/supervisor/life.h"

namespace vosk::supervisor {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogHas;
using support::LogLacks;
using support::LogOf;
using support::SimulatedHost;

constexpr std::uint64_t kRequired = std::uint64_t{2} << 30;

// A machine with VOSK and nothing else; the monitor's program is known to it once it is there.
void LeaveBare(SimulatedHost& host) {
  host.InstallMonitor();
  std::filesystem::remove("C:/VOSK/procdump64.exe");
}

TEST(Provision, ABareMachineEndsUpWithAWatchedCore) {
  CheckedHost host;
  LeaveBare(host);
  host.clock.SetBudget(1h);
  SimServers network(host);
  network.downloads[std::string(identity::kProcDumpUrl)] =
      support::ZipBytes({{"procdump64.exe", "MZ"}});
  network.PublishPackage({.version = "1.2.3"});
  std::size_t cores = 0;
  std::size_t monitors = 0;
  host.At(50s, [&](SimulatedHost& at) {
    cores = at.processes.Running(kCoreName).size();
    monitors = at.processes.Running(kMonitorName).size();
  });
  EXPECT_EQ(LiveOnce(host, network), 0);
  EXPECT_EQ(cores, 1u);
  EXPECT_EQ(monitors, 1u);
  EXPECT_THAT(
      LogOf(host),
      LogHas({"[INFO] ProcDump successfully downloaded and extracted to: C:/VOSK",
              "[WARN] Target executable 'VELDRAN Core.exe' not found. Attempting automatic "
              "installation...",
              "[INFO] Automated installation process completed. Re-checking for target "
              "executable...",
              "[INFO] Target found at default location after installation.",
              "[WARN] Log root directory not available. Update check will assume version '0.0.0'.",
              "[INFO] --- Startup Update Check ---",
              "[WARN] Startup update check: Could not fetch latest version. Skipping.",
              "[INFO] --- Startup Update Check Complete ---",
              "[INFO] VELDRAN Core relaunched successfully."}));
}

TEST(Provision, EmptiesTheDumpStorageAndTheLeftoversOfAnUpdate) {
  CheckedHost host;
  host.Furnish();
  host.DumpAppears("old.dmp", "of an earlier run");
  host.PutFile(host.system.temp_path / "VELDRAN_Install" / "x.msi", "left behind");
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 15s});
  EXPECT_THAT(SimulatedHost::NamesIn(host.DumpDirectory()), testing::IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(host.system.temp_path / "VELDRAN_Install"));
  EXPECT_THAT(LogOf(host), LogHas({"[INFO] Removing installation directory left behind: "
                                   "C:/Users/op/AppData/Local/Temp/VELDRAN_Install"}));
}

TEST(Provision, WaitsForRoomOnTheDisk) {
  CheckedHost host;
  host.Furnish();
  host.files.free_space = kRequired - 1;
  host.At(10s, [](SimulatedHost& at) { at.files.free_space = kRequired; });
  std::size_t cores = 9;
  host.At(9s, [&](SimulatedHost& at) { cores = at.processes.Running(kCoreName).size(); });
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 30s});
  EXPECT_EQ(cores, 0u);
  EXPECT_THAT(LogOf(host),
              LogHas({"[ERROR] CheckDiskSpace: Insufficient free disk space available.",
                      "[WARN] Insufficient space for update. Attempting storage cleanup...",
                      "[ERROR] Even after freeing 0 MB, insufficient space for update. Update "
                      "aborted.",
                      "[WARN] Storage space not sufficient. Halting VOSK Operations.",
                      "[INFO] VELDRAN Core relaunched successfully."}));
}

TEST(Provision, AFullDiskHaltsTheLoopAndNothingIsLost) {
  CheckedHost host;
  host.Furnish();
  host.At(15s, [](SimulatedHost& at) {
    at.files.free_space = kRequired - 1;
    at.CoreExits(kAccessViolation);
  });
  std::size_t cores = 9;
  host.At(39s, [&](SimulatedHost& at) { cores = at.processes.Running(kCoreName).size(); });
  host.At(40s, [](SimulatedHost& at) { at.files.free_space = kRequired; });
  SimServers network(host);
  LiveOnce(host, network);
  EXPECT_EQ(cores, 0u);
  EXPECT_EQ(network.received.size(), 1u);
  EXPECT_EQ(std::ranges::count(LogOf(host),
                               "[WARN] Storage space not sufficient. Halting VOSK Operations."),
            1);
}

TEST(Provision, RepairsACoreThatCannotBeLaunched) {
  CheckedHost host;
  host.Furnish();
  host.clock.SetBudget(1h);
  SimServers network(host);
  network.PublishPackage({.version = "1.2.3"});
  host.FailNext("processes.Start", 193);
  LiveOnce(host, network);
  EXPECT_THAT(
      LogOf(host),
      LogHas({"[ERROR] Failed to launch target process: 193.",
              "[WARN] Attempting automated download and installation/repair of VELDRAN Core...",
              "[INFO] Automated installation succeeded. Will attempt relaunch next cycle.",
              "[INFO] ProcDump monitor started for new target PID 1008"}));
}

TEST(Provision, GivesUpWhereTheRepairFailsAsWell) {
  CheckedHost host;
  host.Furnish();
  host.FailNext("processes.Start", 193);
  SimServers network(host);
  LiveOnce(host, network, {.quit_at = 10min});
  EXPECT_LT(host.clock.Elapsed(), 40s);
  EXPECT_THAT(
      LogOf(host),
      LogHas({"[ERROR] Automated installation failed. Cannot relaunch VELDRAN Core automatically.",
              "[ERROR] Please install VELDRAN Core manually and restart the reporter.",
              "[WARN] Reporter will exit in 15 seconds due to installation failure.",
              "[WARN] Monitoring loop terminated (g_terminateMonitoring is true)."}));
}

}  // namespace
}  // namespace vosk::supervisor
