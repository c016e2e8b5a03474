#include "install/storage_cleanup.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "files/tree_removal.h"
#include "tests/support/checked_host.h"
#include "tests/support/meddling_files.h"
#include "tests/support/transcript.h"
#include "tests/support/variants.h"

namespace vosk::install {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using support::MeddlingFiles;
using support::SimulatedHost;

const fs::path kTemp = "C:/Temp";
const fs::path kDumps = kTemp / "VELDRAN_VOSK_Dumps";

struct Bench {
  Bench(SimulatedHost& host, console::LogSink& log)
      : files(host.files),
        processes(host.processes, log),
        cleanup(files, host.clock, log, processes) {}

  MeddlingFiles files;
  process::ProcessControl processes;
  StorageCleanup cleanup;
};

using Change = std::function<void(SimulatedHost&, MeddlingFiles&)>;

void PutAged(SimulatedHost& host, const fs::path& path, std::size_t size, seconds age) {
  host.PutFile(path, std::string(size, 'x'));
  const auto written = host.clock.WallNow() - age;
  fs::last_write_time(path, std::chrono::file_clock::from_sys(written));
}

constexpr seconds kDay = std::chrono::hours(24);

// The log shows which of them are removed.
void PutFilesOfManyNames(SimulatedHost& host, MeddlingFiles&) {
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

// Puts what a long life leaves: 6 MiB that may be removed, a stray monitor, and files that are not
// VOSK's.
void PutLeftovers(SimulatedHost& host) {
  PutAged(host, kDumps / "a.dmp", 4 << 20, seconds(0));
  PutAged(host, kTemp / "VELDRAN_Install/setup.msi", 1 << 20, seconds(0));
  PutAged(host, kTemp / "VELDRAN old.dmp", 1 << 20, 2 * kDay);
  PutAged(host, kTemp / "thesis.doc", 1 << 20, 2 * kDay);
  PutAged(host, "C:/Elsewhere/mine", 1 << 20, seconds(0));
}

std::string CleanedUp(SimulatedHost& host, std::uint64_t freed) {
  host.choke.faults.Clear();
  return fmt::format("{} freed, {} left, {} elsewhere", freed, files::TreeSize(host.files, kTemp),
                     files::TreeSize(host.files, "C:/Elsewhere"));
}

TEST(CleanUpStorage, TellsOfEveryFault) {
  support::ExpectFaultTranscript(
      "install/clean_up_storage_faults.txt",
      {.arrange = PutLeftovers, .act = [](SimulatedHost& host, console::LogSink& log) {
         return CleanedUp(host, Bench(host, log).cleanup.CleanUpStorage(kDumps, kTemp));
       }});
}

TEST(CleanUpStorage, TakesLeftoversAndNothingElse) {
  struct Row {
    std::string what;
    fs::path dumps = kDumps;
    fs::path temp = kTemp;
    Change change = [](SimulatedHost&, MeddlingFiles&) {};
  };
  const Row rows[] = {
      {"all in its place"},
      {"files of many names", kDumps, kTemp, PutFilesOfManyNames},
      {"a stray monitor", kDumps, kTemp,
       [](SimulatedHost& host, MeddlingFiles&) { host.processes.Add(u"procdump64.exe"); }},
      {"dumps on another volume", "D:/VELDRAN_VOSK_Dumps", kTemp},
      {"dumps that are a link, in a temporary directory with a separator",
       "D:/Temp/VELDRAN_VOSK_Dumps", "D:/Temp/"},
      {"nowhere", "VELDRAN_VOSK_Dumps", ""},
      {"files in use", kDumps, kTemp,
       [](SimulatedHost& host, MeddlingFiles&) {
         host.files.Hold(kDumps / "a.dmp", {});
         host.files.Hold(kTemp / "VELDRAN_Install/setup.msi", {});
         host.files.Hold(kTemp / "VELDRAN old.dmp", {});
       }},
      {"somebody else is faster", kDumps, kTemp,
       [](SimulatedHost&, MeddlingFiles& files) {
         files.before_remove = [](const fs::path& path) { fs::remove(path); };
       }},
      {"exceptions", kDumps, kTemp,
       [](SimulatedHost&, MeddlingFiles& files) {
         files.before_type = [](const fs::path&) { throw std::runtime_error("no memory"); };
       }},
  };
  support::Variants variants;
  for (const Row& row : rows) {
    support::CheckedHost host;
    support::LogRecorder log(host);
    Bench bench(host, log.Sink());
    PutLeftovers(host);
    fs::create_directories("D:/Temp");
    fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), "D:/Temp/VELDRAN_VOSK_Dumps");
    row.change(host, bench.files);
    const auto freed = bench.cleanup.CleanUpStorage(row.dumps, row.temp);
    variants.Add(row.what, log.Lines(), CleanedUp(host, freed));
  }
  variants.Expect("install/clean_up_storage.txt");
}

}  // namespace
}  // namespace vosk::install
