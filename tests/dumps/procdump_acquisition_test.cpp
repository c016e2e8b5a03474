#include "dumps/procdump_acquisition.h"

#include <gtest/gtest.h>

#include "simulation/zip_bytes.h"
#include "tests/support/fake_downloader.h"
#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"
#include "tests/support/sweep.h"

namespace vosk::dumps {
namespace {

namespace fs = std::filesystem;
using support::CheckedHost;
using support::FakeDownloader;
using support::LogHas;
using support::LogIs;
using support::LogLacks;
using support::LogRecorder;
using support::LogText;
using support::SimulatedHost;
using support::ZipBytes;

const fs::path kVosk = "C:/VOSK";
const fs::path kDumps = "C:/Dumps";
const std::string kUrl = "https://downloads.veldran.example/files/Procdump.zip";
const std::string kBoth =
    ZipBytes({{"Eula.txt", "terms"}, {"procdump.exe", "32 bit"}, {"procdump64.exe", "64 bit"}});
const std::string kFallbackOnly = ZipBytes({{"procdump.exe", "32 bit"}});

// A supervisor without ProcDump, and a site that has it.
struct Bench {
  explicit Bench(SimulatedHost& a_host) : host(a_host) { Serve(kBoth); }

  void Serve(const std::string& zip) {
    downloader.fetch = [this, zip](const std::string&, const fs::path& destination) {
      host.PutFile(destination, zip);
      return true;
    };
  }
  bool Ensure(const fs::path& supervisor_directory = kVosk) {
    return acquisition.EnsureProcDumpExists(supervisor_directory, kDumps);
  }
  [[nodiscard]] std::vector<std::string> Boxes() const {
    std::vector<std::string> boxes;
    for (const auto& box : host.system.boxes) boxes.push_back(box.title + ": " + box.text);
    return boxes;
  }

  SimulatedHost& host;
  LogRecorder log{host};
  FakeDownloader downloader;
  support::MeddlingFiles files{host.files};
  ProcDumpAcquisition acquisition{files, host.system, log.Sink(), downloader};
};

const std::string kAttempt =
    "[WARN] ProcDump not found in application directory (C:/VOSK). Attempting download and "
    "extraction...";
const std::string kExtracting =
    "[INFO] Attempting to extract ProcDump from: C:/Dumps/Procdump.zip into: C:/VOSK";
const std::string kCleanedUp =
    "[INFO] Cleaned up downloaded ProcDump zip file: C:/Dumps/Procdump.zip";
const std::string kFound = "[INFO] ExtractProcDump: Found 'procdump64.exe' in zip archive.";
const std::string kTarget = "[INFO] Extracting file to: C:/VOSK/procdump64.exe";
const std::string kExtracted =
    "[INFO] ExtractProcDump: Successfully extracted [procdump64.exe] to [C:/VOSK/procdump64.exe]";
const std::string kDone = "[INFO] ProcDump successfully downloaded and extracted to: C:/VOSK";
const std::string kFallingBack =
    "[WARN] ExtractProcDump: Did not find 'procdump64.exe'. Trying fallback 'procdump.exe'...";
const std::string kNotExtracted =
    "[ERROR] EnsureProcDumpExists: Failed to extract ProcDump from downloaded zip: "
    "C:/Dumps/Procdump.zip";
const std::string kFailedBox =
    "Error: Failed to extract ProcDump after download. Crash monitoring cannot start.";

TEST(ProcDumpAcquisition, IsContentWithEitherExecutable) {
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"procdump.exe"}, "procdump.exe"},
      {{"procdump64.exe"}, "procdump64.exe"},
      {{"procdump.exe", "procdump64.exe"}, "procdump64.exe"}};
  for (const auto& [present, named] : rows) {
    CheckedHost host;
    Bench bench(host);
    for (const std::string& name : present) host.PutFile(kVosk / name, "MZ");
    EXPECT_TRUE(bench.Ensure());
    EXPECT_THAT(bench.downloader.urls, testing::IsEmpty());
    EXPECT_THAT(
        bench.log.Lines(),
        LogIs({"[INFO] ProcDump executable found in application directory: C:/VOSK/" + named}));
  }
}

TEST(ProcDumpAcquisition, TakesOneExecutableOutOfTheDownload) {
  struct Row {
    std::string zip;
    std::string name;
    std::string bytes;
    LogText found;
  };
  const Row rows[] = {
      {kBoth, "procdump64.exe", "64 bit", {kFound}},
      {kFallbackOnly,
       "procdump.exe",
       "32 bit",
       {kFallingBack, "[INFO] ExtractProcDump: Found fallback 'procdump.exe' in zip archive."}}};
  for (const Row& row : rows) {
    CheckedHost host;
    Bench bench(host);
    bench.Serve(row.zip);
    EXPECT_TRUE(bench.Ensure());
    EXPECT_EQ(bench.downloader.urls, std::vector<std::string>{kUrl});
    EXPECT_EQ(SimulatedHost::NamesIn(kVosk), (std::vector<std::string>{"VOSK.exe", row.name}));
    EXPECT_EQ(SimulatedHost::ReadFile(kVosk / row.name), row.bytes);
    EXPECT_THAT(SimulatedHost::NamesIn(kDumps), testing::IsEmpty());
    LogText log = {kAttempt, kExtracting};
    log.insert(log.end(), row.found.begin(), row.found.end());
    const std::string to = "C:/VOSK/" + row.name;
    log.insert(log.end(),
               {"[INFO] Extracting file to: " + to,
                "[INFO] ExtractProcDump: Successfully extracted [" + row.name + "] to [" + to + "]",
                kCleanedUp, kDone});
    EXPECT_THAT(bench.log.Lines(), LogIs(log));
    EXPECT_THAT(bench.Boxes(), testing::IsEmpty());
  }
}

TEST(ProcDumpAcquisition, MakesTheDirectoryItExtractsTo) {
  CheckedHost host;
  Bench bench(host);
  EXPECT_TRUE(bench.Ensure("C:/new/deep"));
  EXPECT_EQ(SimulatedHost::ReadFile("C:/new/deep/procdump64.exe"), "64 bit");
  EXPECT_THAT(bench.log.Lines(), LogHas({"[INFO] Created extraction directory: C:/new/deep"}));
}

// What stands in the log after the attempt, in the box, and nowhere in the two directories.
TEST(ProcDumpAcquisition, SaysWhyThereIsNoProcDump) {
  const std::string broken = std::string(kBoth).replace(kBoth.find("64 bit"), 2, "46");
  struct Row {
    std::string name;
    std::function<void(Bench&)> set_up;
    LogText log;
    std::vector<std::string> boxes = {kFailedBox};
  };
  const Row rows[] = {
      {"no download",
       [](Bench& bench) { bench.downloader.fetch = nullptr; },
       {"[ERROR] EnsureProcDumpExists: Failed to download ProcDump zip from " + kUrl},
       {}},
      {"a page",
       [](Bench& bench) { bench.Serve("<html>" + std::string(100, ' ') + "</html>"); },
       {kExtracting,
        "[ERROR] ExtractProcDump: Failed to initialize zip reader for [C:/Dumps/Procdump.zip]. "
        "Error: failed finding central directory",
        kCleanedUp, kNotExtracted}},
      {"neither name",
       [](Bench& bench) {
         bench.Serve(ZipBytes({{"x64/procdump64.exe", "in a folder"}}));
       },
       {kExtracting, kFallingBack,
        "[ERROR] ExtractProcDump: Could not find 'procdump64.exe' or 'procdump.exe' in the zip "
        "archive: C:/Dumps/Procdump.zip",
        kCleanedUp, kNotExtracted}},
      {"broken member",
       [&broken](Bench& bench) { bench.Serve(broken); },
       {kExtracting, kFound, kTarget,
        "[ERROR] ExtractProcDump: Failed to extract [procdump64.exe] to [C:/VOSK/procdump64.exe]. "
        "Error: decompression failed or archive is corrupted",
        kCleanedUp, kNotExtracted}},
      {"full disk",
       [](Bench& bench) {
         bench.downloader.fetch = [&bench](const std::string&, const fs::path& destination) {
           bench.host.PutFile(destination, kBoth);
           fs::create_symlink("/dev/full", kVosk / "procdump64.exe");
           return true;
         };
       },
       {kExtracting, kFound, kTarget,
        "[ERROR] ExtractProcDump: Failed to extract [procdump64.exe] to [C:/VOSK/procdump64.exe]. "
        "Error: file close failed",
        kCleanedUp, kNotExtracted}},
      {"no directory",
       [](Bench& bench) {
         bench.host.choke.faults.Add({.scope = "files.Exists", .first = 3, .code = 5});
         bench.host.FailNext("files.CreateDirectories", 5);
       },
       {kExtracting,
        "[ERROR] ExtractProcDump: Failed to create extraction directory [C:/VOSK]. Error: Access "
        "is denied.",
        kCleanedUp, kNotExtracted}},
      {"an exception",
       [](Bench& bench) {
         bench.files.before_create_directories = [](const fs::path&) {
           throw std::runtime_error("no memory");
         };
         bench.host.choke.faults.Add({.scope = "files.Exists", .first = 3, .code = 5});
       },
       {kExtracting,
        "[ERROR] ExtractProcDump: Exception creating extraction directory [C:/VOSK]: no memory",
        kCleanedUp, kNotExtracted}},
      {"gone again",
       [](Bench& bench) {
         bench.host.choke.faults.Add({.scope = "files.Exists", .first = 5, .count = 2, .code = 5});
       },
       {kExtracting, kFound, kTarget, kExtracted, kCleanedUp,
        "[ERROR] EnsureProcDumpExists: ProcDump extraction reported success, but executable still "
        "not found in C:/VOSK"},
       {"Error: ProcDump extraction failed verification (file not found after extraction). Crash "
        "monitoring cannot start."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    CheckedHost host;
    Bench bench(host);
    row.set_up(bench);
    EXPECT_FALSE(bench.Ensure());
    LogText log = row.log;
    log.insert(log.begin(), kAttempt);
    EXPECT_THAT(bench.log.Lines(), LogIs(log));
    EXPECT_EQ(bench.Boxes(), row.boxes);
    EXPECT_THAT(SimulatedHost::NamesIn(kDumps), testing::IsEmpty());
    if (row.name != "gone again") {
      EXPECT_EQ(SimulatedHost::NamesIn(kVosk), std::vector<std::string>{"VOSK.exe"});
    }
  }
}

// ProcDump is there, so that a zip which stays behind is worth a warning only.
TEST(ProcDumpAcquisition, GoesOnWhereTheZipCannotBeCleanedUp) {
  const std::pair<std::function<void(Bench&)>, std::string> rows[] = {
      {[](Bench& bench) {
         bench.host.choke.faults.Add({.scope = "files.Exists", .first = 4, .code = 5});
       },
       "[WARN] Error checking existence of zip file for cleanup: C:/Dumps/Procdump.zip. Error: "
       "Access is denied."},
      {[](Bench& bench) {
         bench.files.before_remove = [](const fs::path&) { throw std::runtime_error("no memory"); };
       },
       "[WARN] Exception during zip file cleanup: no memory"},
      {[](Bench& bench) { bench.host.FailNext("files.Remove", 32); },
       "[WARN] Failed to clean up downloaded zip file: C:/Dumps/Procdump.zip. Error: The process "
       "cannot access the file because it is being used by another process."}};
  for (const auto& [set_up, warning] : rows) {
    CheckedHost host;
    Bench bench(host);
    set_up(bench);
    EXPECT_TRUE(bench.Ensure());
    EXPECT_THAT(bench.log.Lines(),
                LogIs({kAttempt, kExtracting, kFound, kTarget, kExtracted, warning, kDone}));
  }
}

TEST(ProcDumpAcquisition, KeepsItsPromisesWhateverFails) {
  support::SweepFaults([](SimulatedHost& host) {
    Bench bench(host);
    const bool there = bench.Ensure("C:/new");
    const auto& fired = host.choke.faults.Fired();
    if (there) {
      EXPECT_EQ(SimulatedHost::ReadFile("C:/new/procdump64.exe"), "64 bit");
    } else {
      EXPECT_FALSE(fired.empty());
      EXPECT_THAT(bench.log.Lines(), testing::Contains(testing::HasSubstr("[ERROR] Ensure")));
      EXPECT_THAT(bench.Boxes(), testing::SizeIs(1));
    }
    const bool told = testing::Value(
        bench.log.Lines(), testing::Contains(testing::AllOf(testing::HasSubstr("[WARN] "),
                                                            testing::HasSubstr("zip file"))));
    EXPECT_TRUE(told || !fs::exists(kDumps / "Procdump.zip"));
  });
}

}  // namespace
}  // namespace vosk::dumps
