#include "install/disk_keeper.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "install/tree_removal.h"
#include "tests/support/checked_host.h"
#include "tests/support/meddling_files.h"
#include "tests/support/transcript.h"
#include "tests/support/variants.h"

namespace vosk::install {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using support::CheckedHost;
using support::LogRecorder;
using support::SimulatedHost;

const fs::path kTemp = "C:/Temp";
const fs::path kDumps = kTemp / "VELDRAN_VOSK_Dumps";

class Files : public support::MeddlingFiles {
 public:
  using MeddlingFiles::MeddlingFiles;
  bool throws_when_asked_for_space = false;
  platform::Result<std::uint64_t> FreeSpace(const Path& root) override {
    if (throws_when_asked_for_space) throw std::runtime_error("no memory");
    return MeddlingFiles::FreeSpace(root);
  }
};

struct Bench {
  Bench(SimulatedHost& host, console::LogSink& log)
      : files(host.files),
        processes(host.processes, log),
        keeper(files, host.clock, log, processes) {}

  Files files;
  process::ProcessControl processes;
  DiskKeeper keeper;
};

using Change = std::function<void(SimulatedHost&, Files&)>;

TEST(CheckDiskSpace, WantsTwoGibibytesOnThePathsVolume) {
  struct Row {
    std::string path;
    std::uint64_t free;
    Change change = [](SimulatedHost&, Files&) {};
  };
  const std::uint64_t enough = 2'147'483'648;
  const auto fails = [](const char* operation) {
    return [operation](SimulatedHost& host, Files&) { host.FailNext(operation, 5, 2); };
  };
  const Row rows[] = {
      {"C:/Program Files/Core", enough},
      {"C:/Program Files/Core", enough - 1},
      {"D:\\Core", 10 * enough},
      {"", enough * 5 / 4},
      {"C:Core", 0},
      {"C:/Core", enough, fails("files.FreeSpace")},
      {"", enough, fails("files.CurrentDirectory")},
      {"C:/", enough,
       [](SimulatedHost&, Files& files) { files.throws_when_asked_for_space = true; }},
  };
  support::Variants variants;
  for (const Row& row : rows) {
    CheckedHost host;
    LogRecorder log(host);
    Bench bench(host, log.Sink());
    host.files.free_space = row.free;
    row.change(host, bench.files);
    // The monitoring loop asks twice a second, quietly.
    const bool quietly = bench.keeper.CheckDiskSpace(row.path, false);
    const std::size_t lines = log.Lines().size();
    const bool loudly = bench.keeper.CheckDiskSpace(row.path, true);
    variants.Add(fmt::format("'{}' with {} free", row.path, row.free), log.Lines(),
                 fmt::format("{} with {} lines, {}", quietly, lines, loudly));
  }
  variants.Expect("install/disk_space.txt");
}

// A file, and a link out of the directory.
void PutDirectory(SimulatedHost& host) {
  host.PutFile("C:/d/file", "x");
  host.PutFile("C:/Elsewhere/mine", "not for us");
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), "C:/d/link");
}

TEST(ClearDirectory, TriesAgainAndStaysInside) {
  struct Row {
    std::string what;
    fs::path path = "C:/d";
    Change change = [](SimulatedHost&, Files&) {};
  };
  const auto throws = [](const auto& problem) {
    return [problem](SimulatedHost&, Files& files) {
      files.before_remove = [problem](const fs::path&) { throw problem; };
    };
  };
  const auto held_for = [](support::Duration time) {
    return [time](SimulatedHost& host, Files&) {
      host.files.Hold("C:/d/file", {});
      host.At(time, [](SimulatedHost& at) { at.files.Release("C:/d/file"); });
    };
  };
  const Row rows[] = {
      {"clean"},
      {"held for a moment", "C:/d", held_for(support::Duration(70))},
      {"held for ever", "C:/d", held_for(seconds(70))},
      {"missing", "C:/missing"},
      {"a file", "C:/d/file"},
      {"a link", "C:/d/link/"},
      {"filesystem exception", "C:/d", throws(fs::filesystem_error("gone", {}))},
      {"standard exception", "C:/d", throws(std::runtime_error("no memory"))},
      {"any exception", "C:/d", throws(42)},
      {"exception at first", "C:/d",
       [](SimulatedHost&, Files& files) {
         files.before_exists = [](const fs::path&) { throw std::runtime_error("no memory"); };
       }},
  };
  support::Variants variants;
  for (const Row& row : rows) {
    CheckedHost host;
    LogRecorder log(host);
    Bench bench(host, log.Sink());
    PutDirectory(host);
    row.change(host, bench.files);
    const bool done = bench.keeper.ClearDirectory(row.path);
    variants.Add(row.what, log.Lines(),
                 fmt::format("{} after {}, left: [{}], elsewhere: [{}]", done, host.clock.Elapsed(),
                             fmt::join(SimulatedHost::NamesIn("C:/d"), " "),
                             fmt::join(SimulatedHost::NamesIn("C:/Elsewhere"), " ")));
  }
  variants.Expect("install/clear_directory.txt");
}

void PutAged(SimulatedHost& host, const fs::path& path, std::size_t size, seconds age) {
  host.PutFile(path, std::string(size, 'x'));
  const auto written = host.clock.WallNow() - age;
  fs::last_write_time(path, std::chrono::file_clock::from_sys(written));
}

constexpr seconds kDay = std::chrono::hours(24);

// The log tells which of them go.
void PutFilesOfManyNames(SimulatedHost& host, Files&) {
  const std::pair<std::string, seconds> files[] = {
      {"Report.ZIP.FAILED_UPLOAD", seconds(0)},
      {"core.dmp.failed_zip.bak", seconds(0)},
      {"VELDRAN Core.exe_1.dmp", kDay + seconds(1)},
      {"my.zip of Veldran", kDay + seconds(1)},
      {"Procdump.zip", seconds(0)},
      {"VELDRAN Core.exe_2.dmp", kDay},
      {"veldran.zip", seconds(-1)},
      {"VELDRAN_procdump.zip", kDay},
      {"VELDRAN.log", 2 * kDay},
      {"core.dmp", 2 * kDay},
      {"Procdump.zip.part", 2 * kDay},
      {"VOSK.log", 2 * kDay},
  };
  for (const auto& [name, age] : files) PutAged(host, kTemp / name, 3000, age);
  fs::create_directories(kTemp / "a directory.failed_zip");
  fs::create_symlink(fs::absolute(kTemp / "VOSK.log"), kTemp / "link.failed_zip");
}

// What a long life leaves: 6 MiB that may go, a stray monitor, and files that are not VOSK's.
void PutLeftovers(SimulatedHost& host) {
  PutAged(host, kDumps / "a.dmp", 4 << 20, seconds(0));
  PutAged(host, kTemp / "VELDRAN_Install/setup.msi", 1 << 20, seconds(0));
  PutAged(host, kTemp / "VELDRAN old.dmp", 1 << 20, 2 * kDay);
  PutAged(host, kTemp / "thesis.doc", 1 << 20, 2 * kDay);
  PutAged(host, "C:/Elsewhere/mine", 1 << 20, seconds(0));
}

std::string CleanedUp(SimulatedHost& host, std::uint64_t freed) {
  host.choke.faults.Clear();
  return fmt::format("{} freed, {} left, {} elsewhere", freed, TreeSize(host.files, kTemp),
                     TreeSize(host.files, "C:/Elsewhere"));
}

TEST(CleanUpStorage, TellsOfEveryFault) {
  support::ExpectFaultTranscript(
      "install/clean_up_storage_faults.txt",
      {.arrange = PutLeftovers, .act = [](SimulatedHost& host, console::LogSink& log) {
         return CleanedUp(host, Bench(host, log).keeper.CleanUpStorage(kDumps, kTemp));
       }});
}

TEST(CleanUpStorage, TakesLeftoversAndNothingElse) {
  struct Row {
    std::string what;
    fs::path dumps = kDumps;
    fs::path temp = kTemp;
    Change change = [](SimulatedHost&, Files&) {};
  };
  const Row rows[] = {
      {"all in its place"},
      {"files of many names", kDumps, kTemp, PutFilesOfManyNames},
      {"a stray monitor", kDumps, kTemp,
       [](SimulatedHost& host, Files&) { host.processes.Add(u"procdump64.exe"); }},
      {"dumps on another volume", "D:/VELDRAN_VOSK_Dumps", kTemp},
      {"dumps that are a link, in a temporary directory with a separator",
       "D:/Temp/VELDRAN_VOSK_Dumps", "D:/Temp/"},
      {"nowhere", "VELDRAN_VOSK_Dumps", ""},
      {"files in use", kDumps, kTemp,
       [](SimulatedHost& host, Files&) {
         host.files.Hold(kDumps / "a.dmp", {});
         host.files.Hold(kTemp / "VELDRAN_Install/setup.msi", {});
         host.files.Hold(kTemp / "VELDRAN old.dmp", {});
       }},
      {"somebody else is faster", kDumps, kTemp,
       [](SimulatedHost&, Files& files) {
         files.before_remove = [](const fs::path& path) { fs::remove(path); };
       }},
      {"exceptions", kDumps, kTemp,
       [](SimulatedHost&, Files& files) {
         files.before_type = [](const fs::path&) { throw std::runtime_error("no memory"); };
       }},
  };
  support::Variants variants;
  for (const Row& row : rows) {
    CheckedHost host;
    LogRecorder log(host);
    Bench bench(host, log.Sink());
    PutLeftovers(host);
    fs::create_directories("D:/Temp");
    fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), "D:/Temp/VELDRAN_VOSK_Dumps");
    row.change(host, bench.files);
    const auto freed = bench.keeper.CleanUpStorage(row.dumps, row.temp);
    variants.Add(row.what, log.Lines(), CleanedUp(host, freed));
  }
  variants.Expect("install/clean_up_storage.txt");
}

}  // namespace
}  // namespace vosk::install
