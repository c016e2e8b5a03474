#include "install/disk_keeper.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "install/tree_removal.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"
#include "tests/support/sweep.h"

namespace vosk::install {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogRecorder;
using support::LogText;
using support::SimulatedHost;
using testing::ElementsAre;
using testing::HasSubstr;

const fs::path kTemp = "C:/Temp";
const fs::path kDumps = kTemp / "VELDRAN_VOSK_Dumps";

std::string Joined(const LogText& lines) {
  return fmt::format("{}", fmt::join(lines, "\n"));
}

struct Bench {
  explicit Bench(SimulatedHost& simulated) : host(simulated) {}

  SimulatedHost& host;
  LogRecorder log{host};
  support::MeddlingFiles files{host.files};
  process::ProcessControl processes{host.processes, log.Sink()};
  DiskKeeper keeper{files, host.clock, log.Sink(), processes};
};

TEST(CheckDiskSpace, WantsTwoGibibytesOnThePathsVolume) {
  struct Row {
    fs::path path;
    std::uint64_t free;
    std::string failing;
    std::string volume;  // empty: none was found
    std::string last_lines;
  };
  const std::uint64_t enough = 2'147'483'648;
  const std::string available = "[INFO] CheckDiskSpace: Available free space: ";
  const std::string plenty = available + "2.00 GB. Required: 2.00 GB.";
  const std::string too_little = "[ERROR] CheckDiskSpace: Insufficient free disk space available.";
  const Row rows[] = {
      {"C:/Program Files/Core", enough, "", "C:/", plenty},
      {"C:/Program Files/Core", enough - 1, "", "C:/", plenty + "\n" + too_little},
      {"D:\\Core", 10 * enough, "", "D:\\",
       "[ERROR] CheckDiskSpace: GetDiskFreeSpaceExW failed for path 'D:\\'. Error: 3"},
      {"C:/Core", enough, "files.FreeSpace", "C:/",
       "[ERROR] CheckDiskSpace: GetDiskFreeSpaceExW failed for path 'C:/'. Error: 5"},
      {"", enough * 5 / 4, "", "C:/", available + "2.50 GB. Required: 2.00 GB."},
      {"C:Core", 0, "", "C:/", available + "0.00 GB. Required: 2.00 GB.\n" + too_little},
      {"", enough, "files.CurrentDirectory", "",
       "[ERROR] CheckDiskSpace: Cannot determine root path for checking space (pathToCheck has no "
       "root and GetCurrentDirectory failed)."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path.string() + ' ' + row.failing);
    CheckedHost host;
    Bench bench(host);
    host.files.free_space = row.free;
    if (!row.failing.empty()) host.FailNext(row.failing, 5, 2);
    const bool passes = row.last_lines.find("ERROR") == std::string::npos;
    EXPECT_EQ(bench.keeper.CheckDiskSpace(row.path, false), passes);
    EXPECT_THAT(bench.log.Lines(), LogIs({})) << "the monitoring loop asks twice a second";
    EXPECT_EQ(bench.keeper.CheckDiskSpace(row.path, true), passes);
    std::string wanted = row.last_lines;
    if (!row.volume.empty()) {
      wanted = fmt::format("[INFO] CheckDiskSpace: Checking free space on volume: {}\n{}",
                           row.volume, wanted);
    }
    EXPECT_EQ(Joined(bench.log.Lines()), wanted);
  }
}

TEST(ClearDirectory, TriesAgainAndStaysInside) {
  CheckedHost host;
  Bench bench(host);
  const std::string dump = (kDumps / "a.dmp").string();
  const std::string held = (kDumps / "held.zip").string();
  const std::string in_use =
      "The process cannot access the file because it is being used by another process.";
  host.PutFile(dump, "MDMP");
  host.PutFile(held, "PK");
  host.PutFile(kDumps / "deep/down/b.dmp", "MDMP");
  host.PutFile("C:/Elsewhere/mine", "not for us");
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), kDumps / "deep/link");
  host.files.Hold(dump, {});
  host.files.Hold(held, {});
  host.At(support::Duration(70), [&](SimulatedHost&) { host.files.Release(dump); });
  EXPECT_FALSE(bench.keeper.ClearDirectory(kDumps));
  host.files.Release(held);
  EXPECT_TRUE(bench.keeper.ClearDirectory(kDumps));
  EXPECT_THAT(SimulatedHost::NamesIn(kTemp), ElementsAre("VELDRAN_VOSK_Dumps"));
  EXPECT_EQ(SimulatedHost::ReadFile("C:/Elsewhere/mine"), "not for us");

  const std::string attempt =
      "[INFO] Attempting to clear contents of directory: C:/Temp/VELDRAN_VOSK_Dumps";
  const auto retry = [&](const std::string& path) {
    return fmt::format("[WARN] ClearDirectory: Failed to delete [{}], retrying in 50ms. Error: {}",
                       path, in_use);
  };
  const std::string finished =
      "[INFO] ClearDirectory: Finished clearing [C:/Temp/VELDRAN_VOSK_Dumps]. ";
  EXPECT_THAT(
      bench.log.Lines(),
      LogIs({attempt, retry(dump), retry(dump), retry(held), retry(held),
             fmt::format("[ERROR] ClearDirectory: Failed to delete [{}] after retries. Error: {}",
                         held, in_use),
             finished + "Deleted: 2, Failed: 1", attempt, finished + "Deleted: 1, Failed: 0"}));
  EXPECT_EQ(host.clock.Elapsed(), support::Duration(200));
}

TEST(ClearDirectory, SaysWhyItCannot) {
  struct Row {
    fs::path path;
    std::string failing;
    std::string log;
  };
  const std::string untyped =
      "[ERROR] ClearDirectory: Error checking type of [C:/d]: Access is denied.";
  const std::string stopped =
      "[ERROR] ClearDirectory: Error iterating directory [C:/d]: Access is denied.\n"
      "[ERROR] ClearDirectory: Iteration stopped prematurely due to directory error: Access is "
      "denied.\n[INFO] ClearDirectory: Finished clearing [C:/d]. Deleted: 0, Failed: 0";
  const Row rows[] = {
      {"C:/missing", "",
       "[INFO] ClearDirectory: Directory does not exist, nothing to clear: C:/missing"},
      {"C:/d/file", "", "[ERROR] ClearDirectory: Provided path is not a directory: C:/d/file"},
      {"C:/link/", "",
       "[ERROR] ClearDirectory: Provided path is only a link to a directory: C:/link/"},
      {"d", "", "[ERROR] ClearDirectory: Provided path is not absolute: d"},
      {"C:/d", "files.Exists",
       "[ERROR] ClearDirectory: Error checking existence of [C:/d]: Access is denied."},
      {"C:/d", "files.TypeOf", untyped},
      {"C:/d", "files.IsLink", untyped},
      {"C:/d", "files.Walk", stopped},
      {"C:/d", "files.Walk.Next", stopped},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.log);
    CheckedHost host;
    Bench bench(host);
    host.PutFile("C:/d/file", "x");
    host.PutFile("d/file", "x");
    fs::create_directory_symlink(fs::absolute("C:/d"), "C:/link");
    if (!row.failing.empty()) host.FailNext(row.failing, 5);
    EXPECT_EQ(bench.keeper.ClearDirectory(row.path), row.path == "C:/missing");
    EXPECT_EQ(Joined(bench.log.Lines()),
              fmt::format("[INFO] Attempting to clear contents of directory: {}\n{}",
                          row.path.string(), row.log));
    EXPECT_TRUE(fs::exists("C:/d/file") && fs::exists("d/file"));
  }
}

TEST(ClearDirectory, LetsNoExceptionOut) {
  CheckedHost host;
  Bench bench(host);
  host.PutFile("C:/d/file", "x");
  bench.files.before_remove = [](const fs::path&) { throw fs::filesystem_error("gone", {}); };
  EXPECT_FALSE(bench.keeper.ClearDirectory("C:/d"));
  bench.files.before_remove = [](const fs::path&) { throw std::runtime_error("no memory"); };
  EXPECT_FALSE(bench.keeper.ClearDirectory("C:/d"));
  bench.files.before_remove = [](const fs::path&) { throw 42; };
  EXPECT_FALSE(bench.keeper.ClearDirectory("C:/d"));
  bench.files.before_exists = [](const fs::path&) { throw std::runtime_error("no memory"); };
  EXPECT_FALSE(bench.keeper.ClearDirectory("C:/d"));
  const std::string failed =
      "[INFO] ClearDirectory: Finished clearing [C:/d]. Deleted: 0, Failed: 1";
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas({"[ERROR] ClearDirectory: Filesystem exception deleting entry [C:/d/file]: "
              "filesystem error: gone: Success",
              failed,
              "[ERROR] ClearDirectory: Standard exception deleting entry [C:/d/file]: no memory",
              failed, "[ERROR] ClearDirectory: Unknown exception deleting entry [C:/d/file]",
              failed,
              "[ERROR] ClearDirectory: Exception during directory iteration setup for [C:/d]: no "
              "memory"}));
}

void PutAged(SimulatedHost& host, const fs::path& path, std::size_t size, seconds age) {
  host.PutFile(path, std::string(size, 'x'));
  const auto written = host.clock.WallNow() - age;
  fs::last_write_time(path, std::chrono::file_clock::from_sys(written));
}

TEST(CleanUpStorage, TakesOldFilesByTheirNames) {
  struct Row {
    std::string name;
    seconds age;
    bool removed;
  };
  constexpr seconds kDay = std::chrono::hours(24);
  const Row rows[] = {
      {"Report.ZIP.FAILED_UPLOAD", seconds(0), true},
      {"core.dmp.failed_zip.bak", seconds(0), true},
      {"VELDRAN Core.exe_1.dmp", kDay + seconds(1), true},
      {"my.zip of Veldran", kDay + seconds(1), true},
      {"Procdump.zip", seconds(0), true},
      {"VELDRAN Core.exe_2.dmp", kDay, false},
      {"veldran.zip", seconds(-1), false},
      {"VELDRAN_procdump.zip", seconds(0), false},
      {"VELDRAN.log", 2 * kDay, false},
      {"core.dmp", 2 * kDay, false},
      {"Procdump.zip.part", 2 * kDay, false},
      {"VOSK.log", 2 * kDay, false},
  };
  CheckedHost host;
  Bench bench(host);
  std::vector<std::string> kept = {"a directory.failed_zip", "link.failed_zip"};
  for (const Row& row : rows) {
    PutAged(host, kTemp / row.name, 3000, row.age);
    if (!row.removed) kept.push_back(row.name);
  }
  fs::create_directories(kTemp / kept[0]);
  fs::create_symlink(fs::absolute(kTemp / "VOSK.log"), kTemp / kept[1]);
  host.FailNext("files.LastWriteTime", 5);  // "VELDRAN Core.exe_1.dmp"
  kept.push_back("VELDRAN Core.exe_1.dmp");
  host.files.Hold(kTemp / "Procdump.zip", {});
  kept.push_back("Procdump.zip");
  EXPECT_EQ(bench.keeper.CleanUpStorage(kDumps, kTemp), 9000u);
  EXPECT_THAT(SimulatedHost::NamesIn(kTemp), testing::UnorderedElementsAreArray(kept));
  EXPECT_THAT(bench.log.Lines(),
              LogHas({"[INFO] Scanning temp directory for old VOSK files: C:/Temp",
                      "[WARN] Failed to remove old file: Procdump.zip. Error: The process cannot "
                      "access the file because it is being used by another process.",
                      "[INFO] Removed old file: Report.ZIP.FAILED_UPLOAD (2 KB)",
                      "[INFO] Removed old file: core.dmp.failed_zip.bak (2 KB)",
                      "[INFO] Removed old file: my.zip of Veldran (2 KB)",
                      "[INFO] Removed 3 old VOSK-related files. Freed 0.01 MB"}));
  host.files.Release(kTemp / "Procdump.zip");
  EXPECT_EQ(bench.keeper.CleanUpStorage(kDumps, kTemp), 6000u);
}

// What a long life leaves: 6 MiB that may go, a stray monitor, and files that are not VOSK's.
void PutLeftovers(SimulatedHost& host) {
  PutAged(host, kDumps / "a.dmp", 3 << 20, seconds(0));
  PutAged(host, kDumps / "b.zip.failed_upload", 1 << 20, seconds(0));
  PutAged(host, kTemp / "VELDRAN_Install/package/setup.msi", 1 << 20, seconds(0));
  PutAged(host, kTemp / "VELDRAN old.dmp", 1 << 20, std::chrono::hours(48));
  PutAged(host, kTemp / "thesis.doc", 1 << 20, std::chrono::hours(48));
  PutAged(host, "C:/Elsewhere/mine", 1 << 20, seconds(0));
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), kDumps / "link");
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), kTemp / "VELDRAN_Install/link");
  host.processes.Add(u"procdump64.exe");
}

TEST(CleanUpStorage, TellsWhatItFreed) {
  CheckedHost host;
  Bench bench(host);
  PutLeftovers(host);
  EXPECT_EQ(bench.keeper.CleanUpStorage(kDumps, kTemp), 6u << 20);
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas({"[WARN] Initiating storage cleanup due to insufficient disk space...",
              "[INFO] Cleaning dump storage directory: C:/Temp/VELDRAN_VOSK_Dumps",
              "[INFO] ClearDirectory: Finished clearing [C:/Temp/VELDRAN_VOSK_Dumps]. Deleted: 3, "
              "Failed: 0",
              "[INFO] Cleared dump storage directory. Freed approximately 4.00 MB",
              "[INFO] Cleaning installation temp directory: C:/Temp/VELDRAN_Install",
              "[INFO] Removed installation temp directory. Freed approximately 1.00 MB",
              "[INFO] Removed old file: VELDRAN old.dmp (1024 KB)",
              "[INFO] Removed 1 old VOSK-related files. Freed 1.00 MB",
              "[INFO] TerminateProcDumpInstances: Successfully initiated termination for all found "
              "instances.",
              "[INFO] Terminated any orphaned ProcDump instances",
              "[WARN] Storage cleanup completed. Total space freed: 6.00 MB (0.01 GB)"}));
}

TEST(CleanUpStorage, LeavesAloneWhatIsNotWhereItShouldBe) {
  CheckedHost host;
  Bench bench(host);
  PutLeftovers(host);
  host.PutFile("D:/VELDRAN_VOSK_Dumps/a.dmp", "x");
  fs::create_directories("D:/Temp");
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), "D:/Temp/VELDRAN_VOSK_Dumps");
  EXPECT_EQ(bench.keeper.CleanUpStorage("D:/VELDRAN_VOSK_Dumps", "D:/Temp"), 0u);
  EXPECT_EQ(bench.keeper.CleanUpStorage("D:/Temp/VELDRAN_VOSK_Dumps", "D:/Temp/"), 0u);
  EXPECT_EQ(bench.keeper.CleanUpStorage("VELDRAN_VOSK_Dumps", ""), 0u);
  EXPECT_TRUE(fs::exists("D:/VELDRAN_VOSK_Dumps/a.dmp"));
  bench.files.before_type = [](const fs::path&) { throw std::runtime_error("no memory"); };
  EXPECT_EQ(bench.keeper.CleanUpStorage(kDumps, kTemp), 0u);
  EXPECT_EQ(TreeSize(host.files, "C:/Elsewhere") + TreeSize(host.files, kTemp), 8u << 20);
  const std::string failed = "[ERROR] Failed to fully clear dump storage directory ";
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas({failed + "D:/VELDRAN_VOSK_Dumps: it does not lie in D:/Temp",
              failed + "D:/Temp/VELDRAN_VOSK_Dumps",
              "[ERROR] Failed to remove installation temp directory: VELDRAN_Install, Error: "
              "refused to remove 'VELDRAN_Install' below '': not an absolute path",
              "[ERROR] Exception scanning temp directory: its path is not absolute",
              failed + "C:/Temp/VELDRAN_VOSK_Dumps: no memory",
              "[ERROR] Exception cleaning installation temp directory: no memory",
              "[ERROR] Exception scanning temp directory: no memory"}));
}

TEST(CleanUpStorage, CountsOnlyWhatWentWhateverFails) {
  support::SweepFaults([](SimulatedHost& host) {
    PutLeftovers(host);
    Bench bench(host);
    host.choke.SetCallBudget(1000);
    const std::uint64_t freed = bench.keeper.CleanUpStorage(kDumps, kTemp);
    std::uint64_t left = 0;
    for (const auto& entry : fs::recursive_directory_iterator(kTemp)) {
      if (entry.is_regular_file()) left += entry.file_size();
    }
    EXPECT_LE(freed, (std::uint64_t{7} << 20) - left);
    EXPECT_EQ(fs::file_size(kTemp / "thesis.doc") + fs::file_size("C:/Elsewhere/mine"), 2u << 20);
    EXPECT_THAT(bench.log.Sink().RecentLogLines().back(), HasSubstr("Storage cleanup completed."));
    const bool all_gone = left == 1 << 20;
    const bool told = testing::Value(
        bench.log.Lines(),
        testing::Contains(testing::AnyOf(HasSubstr("[ERROR]"), HasSubstr("Failed to remove"))));
    EXPECT_TRUE(all_gone || told) << left;
    EXPECT_TRUE(!host.choke.faults.Fired().empty() || freed == std::uint64_t{6} << 20) << freed;
  });
}

}  // namespace
}  // namespace vosk::install
