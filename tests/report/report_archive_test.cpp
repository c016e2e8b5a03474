#include "report/report_archive.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <random>
#include <thread>

#include "tests/report/meddling_files.h"
#include "tests/report/zip_contents.h"
#include "tests/support/log_recorder.h"
#include "tests/support/simulated_host.h"
#include "tests/support/sweep.h"

namespace vosk::report {
namespace {

namespace fs = std::filesystem;
using support::LogHas;
using support::LogIs;
using support::LogLacks;
using support::SimulatedHost;

const fs::path kDump = "dumps/core.dmp";
const fs::path kZip = "dumps/core_RIG-7_CRASH.zip";

// Bytes that no packer makes smaller.
std::string Noise(std::size_t size) {
  std::mt19937_64 random(size);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

class ReportArchiveTest : public testing::Test {
 protected:
  bool Pack(const std::vector<fs::path>& optional_paths = {}) {
    return archive_.CreateReportZip(kZip, kDump, optional_paths);
  }
  void ExpectNothingLeft(const std::string& dump_bytes) {
    EXPECT_FALSE(fs::exists(kZip));
    EXPECT_EQ(SimulatedHost::ReadFile(kDump), dump_bytes);
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }

  SimulatedHost host_;
  MeddlingFiles files_{host_.files};
  support::LogRecorder log_{host_};
  console::TransferProgress progress_;
  ReportArchive archive_{files_, host_.system, host_.clock, log_.Sink(), progress_};
};

TEST_F(ReportArchiveTest, PacksDumpFilesAndDirectoriesInOrder) {
  const std::string dump = support::DumpBytes(300'000);
  host_.PutFile(kDump, dump);
  host_.PutFile("info/hostInfo.txt", "host");
  host_.PutFile("info/core_hostInfo.txt", "core");
  host_.PutFile("TestNet/node.log", "log");
  host_.PutFile("TestNet/old/K\xc3\xb6ln \xe6\x97\xa5\xe6\x9c\xac.log", "old");
  host_.PutFile("TestNet/old/empty.log", "");
  fs::create_directories("TestNet/void");
  fs::create_directory_symlink("..", "TestNet/old/loop");

  EXPECT_TRUE(Pack({"info/hostInfo.txt", "info/core_hostInfo.txt", "TestNet", "info/."}));

  const std::vector<ZipEntry> expected = {
      {"core.dmp", dump},
      {"hostinfo/hostInfo.txt", "host"},
      {"core_hostInfo.txt", "core"},
      {"TestNet/node.log", "log"},
      {"TestNet/old/", ""},
      {"TestNet/old/K\xc3\xb6ln \xe6\x97\xa5\xe6\x9c\xac.log", "old"},
      {"TestNet/old/empty.log", ""},
      {"TestNet/old/loop/", ""},
      {"TestNet/void/", ""},
      {"additional_files/core_hostInfo.txt", "core"},
      {"additional_files/hostInfo.txt", "host"},
  };
  EXPECT_EQ(ReadZip(kZip), expected);
  ExpectReadersAccept(kZip);
  EXPECT_EQ(progress_.Percentage(), 100.0);
  EXPECT_EQ(progress_.ActivityLabel(), "Zipping");
  EXPECT_THAT(log_.Lines(),
              LogIs({"[INFO] Creating Zip archive: dumps/core_RIG-7_CRASH.zip",
                     "[INFO] Added dump file [core.dmp] to zip.",
                     "[INFO] Added optional file [hostinfo/hostInfo.txt]",
                     "[INFO] Added optional file [core_hostInfo.txt]",
                     "[INFO] Adding optional directory: TestNet as TestNet/",
                     "[INFO] Adding directory to zip: [TestNet] as [TestNet]",
                     "[INFO] Successfully added contents of directory [TestNet] as [TestNet]",
                     "[INFO] Adding optional directory: info/. as additional_files/",
                     "[INFO] Adding directory to zip: [info/.] as [additional_files]",
                     "[INFO] Successfully added contents of directory [info/.] as "
                     "[additional_files]",
                     "[INFO] Successfully created zip archive structure: "
                     "dumps/core_RIG-7_CRASH.zip"}));
}

TEST_F(ReportArchiveTest, PacksDumpsOfEverySmallSize) {
  for (const std::size_t size : {0, 1, 3, 4, 65'536, 65'537}) {
    host_.PutFile(kDump, Noise(size));
    EXPECT_TRUE(Pack()) << size;
    EXPECT_EQ(ReadZip(kZip), (std::vector<ZipEntry>{{"core.dmp", Noise(size)}}));
    ExpectReadersAccept(kZip);
  }
}

TEST_F(ReportArchiveTest, ShowsProgressUpToTheEndOfTheDump) {
  host_.PutFile(kDump, Noise(4 * 65'536));
  std::vector<double> seen;
  files_.before_read = [&](int) { seen.push_back(progress_.Percentage()); };
  EXPECT_TRUE(Pack());
  EXPECT_EQ(seen, (std::vector<double>{0, 23.75, 47.5, 71.25, 95, 95}));
}

// Every optional path that cannot be packed leaves its line, and the run ends well.
TEST_F(ReportArchiveTest, LeavesOptionalMisfitsOut) {
  host_.PutFile(kDump, "dump");
  for (const char* name : {"guarded.log", "strange.log", "gone.log", "TestNet/a_gone.log",
                           "TestNet/b_odd.log", "TestNet/c_kept.log", "Broken/x.log"}) {
    host_.PutFile(name, "log");
  }
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  ASSERT_EQ(mkfifo("TestNet/pipe", 0600), 0);
  files_.before_exists = [&](const fs::path& path) {
    if (path == "guarded.log") host_.FailNext("files.Exists", 5);
    if (path == "Broken") host_.FailNext("files.Walk.Next", 1392);
  };
  files_.before_type = [&](const fs::path& path) {
    if (path == "strange.log" || path == "TestNet/b_odd.log") host_.FailNext("files.TypeOf", 5);
  };
  // What disappears after that is missed by miniz only.
  files_.after_type = [](const fs::path& path) {
    if (path == "gone.log" || path == "TestNet/a_gone.log") fs::remove(path);
  };

  EXPECT_TRUE(
      Pack({"missing.log", "guarded.log", "strange.log", "pipe", "gone.log", "TestNet", "Broken"}));
  EXPECT_EQ(ReadZip(kZip),
            (std::vector<ZipEntry>{{"core.dmp", "dump"}, {"TestNet/c_kept.log", "log"}}));
  EXPECT_THAT(
      log_.Lines(),
      LogHas({
          "[WARN] Optional path not found or error checking [missing.log], skipping. Error: No "
          "such "
          "file or directory",
          "[WARN] Optional path not found or error checking [guarded.log], skipping. Error: Access "
          "is denied.",
          "[ERROR] Error checking type of optional path [strange.log]: Access is denied.",
          "[WARN] Optional path is not a regular file, skipping: pipe",
          "[ERROR] mz_zip_writer_add_file() failed for optional file [gone.log]. Error: file "
          "stat failed",
          "[ERROR] Failed to add file [TestNet/a_gone.log] as [TestNet/a_gone.log] to zip. Error: "
          "file stat failed",
          "[ERROR] Error checking file type for [TestNet/b_odd.log]. Error: Access is denied.",
          "[WARN] Finished adding directory [TestNet] with one or more errors.",
          "[WARN] Issues encountered adding directory contents from: TestNet",
          "[ERROR] Error iterating directory [Broken]. Error: The file or directory is corrupted "
          "and unreadable.",
          "[WARN] Issues encountered adding directory contents from: Broken",
          "[INFO] Successfully created zip archive structure: dumps/core_RIG-7_CRASH.zip",
      }));
}

// The Core may still write to the log that is being packed. miniz gives up on such a file, and what
// it wrote of it must not bury the archive's directory.
TEST_F(ReportArchiveTest, LogThatGrowsWhileItIsPackedLeavesAReadableZip) {
  host_.PutFile(kDump, "dump");
  host_.PutFile("grow.log", Noise(4'000'000));
  std::atomic<bool> packed = false;
  std::thread core([&] {
    std::ofstream log("grow.log", std::ios::app);
    while (!packed) {
      log << "one more line" << std::endl;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  EXPECT_TRUE(Pack({"grow.log"}));
  packed = true;
  core.join();
  EXPECT_THAT(log_.Lines(), LogHas({"[ERROR] mz_zip_writer_add_file() failed for optional file "
                                    "[grow.log]. Error: file read failed"}));
  EXPECT_EQ(ReadZip(kZip), (std::vector<ZipEntry>{{"core.dmp", "dump"}}));
  ExpectReadersAccept(kZip);
}

TEST_F(ReportArchiveTest, DumpThatCannotBePackedWholeFailsTheRun) {
  const std::string bytes = Noise(300'000);
  const std::string cannot_open =
      "[ERROR] Failed to open dump file for zip compression: dumps/core.dmp";
  const std::string cannot_add =
      "[ERROR] mz_zip_writer_add_read_buf_callback() failed for dump file [core.dmp]. Error: file "
      "read failed";
  const auto at_second_read = [](std::function<void()> meddle) {
    return [meddle](int reads) {
      if (reads == 1) meddle();
    };
  };
  struct Row {
    std::string name;
    std::function<void()> set_up;
    std::string error;
    std::string bytes_after;
  };
  const Row rows[] = {
      {"missing", [] { fs::remove(kDump); }, cannot_open, ""},
      {"held", [&] { host_.files.Hold(kDump, {}); }, cannot_open, bytes},
      {"breaks", [&] { host_.choke.faults.Add({.kind = support::FaultKind::broken_stream}); },
       cannot_add, bytes},
      {"shrinks",
       [&] { files_.before_read = at_second_read([] { fs::resize_file(kDump, 70'000); }); },
       cannot_add, bytes.substr(0, 70'000)},
      {"grows",
       [&] {
         files_.before_read = at_second_read([] { std::ofstream(kDump, std::ios::app) << "more"; });
       },
       cannot_add, bytes + "more"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host_.PutFile(kDump, bytes);
    row.set_up();
    EXPECT_FALSE(Pack());
    EXPECT_THAT(log_.Lines(),
                LogHas({row.error,
                        "[ERROR] Zip archive creation failed. Attempting to delete potentially "
                        "incomplete file: dumps/core_RIG-7_CRASH.zip"}));
    ExpectNothingLeft(row.bytes_after);
    files_.before_read = nullptr;
    host_.choke.faults.Clear();
    host_.files.Release(kDump);
  }
}

// A dump that the monitor has only begun counts as whole when it is empty for good.
TEST_F(ReportArchiveTest, EmptyDumpThatGrowsFailsTheRun) {
  host_.PutFile(kDump, "");
  files_.before_read = [](int) { std::ofstream(kDump, std::ios::app) << "begun"; };
  EXPECT_FALSE(Pack());
  ExpectNothingLeft("begun");
}

TEST_F(ReportArchiveTest, ReplacesAnOldZip) {
  host_.PutFile(kDump, "dump");
  host_.PutFile(kZip, Noise(10'000));
  EXPECT_TRUE(Pack());
  EXPECT_EQ(ReadZip(kZip), (std::vector<ZipEntry>{{"core.dmp", "dump"}}));
}

TEST_F(ReportArchiveTest, OverwritesAnOldZipThatCannotBeRemoved) {
  host_.PutFile(kDump, "dump");
  host_.PutFile(kZip, Noise(10'000));
  host_.files.Hold(kZip, {.read = true, .remove = false});
  EXPECT_TRUE(Pack());
  EXPECT_EQ(ReadZip(kZip), (std::vector<ZipEntry>{{"core.dmp", "dump"}}));
  EXPECT_THAT(log_.Lines(),
              LogHas({"[WARN] Failed to remove existing zip file [dumps/core_RIG-7_CRASH.zip] (The "
                      "process cannot access the file because it is being used by another process.)"
                      ". Attempting to overwrite."}));
}

TEST_F(ReportArchiveTest, TargetThatCannotBeOpenedFailsTheRun) {
  host_.PutFile(kDump, "dump");
  host_.PutFile(kZip / "inside", "a folder of this name");
  EXPECT_FALSE(Pack());
  EXPECT_TRUE(fs::exists(kZip / "inside"));
  EXPECT_EQ(SimulatedHost::ReadFile(kDump), "dump");
  EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
  EXPECT_THAT(log_.Lines(),
              LogHas({"[WARN] Failed to remove existing zip file [dumps/core_RIG-7_CRASH.zip] (The "
                      "directory is not empty.). Attempting to overwrite.",
                      "[ERROR] mz_zip_writer_init_file_v2() failed for dumps/core_RIG-7_CRASH.zip! "
                      "Error: file open failed"}));
}

TEST_F(ReportArchiveTest, MakesTheTargetsDirectoryOrSaysWhyNot) {
  host_.PutFile(kDump, "dump");
  EXPECT_TRUE(archive_.CreateReportZip("new/deep/r.zip", kDump, {}));
  EXPECT_TRUE(fs::exists("new/deep/r.zip"));
  host_.PutFile("file", "");
  EXPECT_FALSE(archive_.CreateReportZip("file/r.zip", kDump, {}));
  EXPECT_THAT(log_.Lines(),
              LogHas({"[ERROR] Failed to create directory for zip file [file]. Error: "
                      "Cannot create a file when that file already exists."}));
  EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
}

TEST_F(ReportArchiveTest, ZipThatCannotBeDeletedIsNamed) {
  host_.files.Hold(kZip, {.read = true, .remove = false});
  EXPECT_FALSE(Pack());
  EXPECT_THAT(log_.Lines(),
              LogHas({"[WARN] Failed to delete incomplete/failed zip file: "
                      "dumps/core_RIG-7_CRASH.zip. Error: The process cannot access the file "
                      "because it is being used by another process."}));
}

TEST_F(ReportArchiveTest, ExceptionsEndInTheLog) {
  const auto explode = [](const fs::path&) { throw std::runtime_error("no memory"); };
  const MeddlingFiles::Hook quiet = [](const fs::path&) {};
  host_.PutFile(kDump, "dump");
  host_.PutFile("TestNet/a.log", "log");
  host_.PutFile("TestNet/b.log", "log");

  files_.before_create_directories = explode;
  EXPECT_FALSE(Pack());
  files_.before_create_directories = quiet;

  files_.before_type = [&](const fs::path& path) {
    if (path == "TestNet/a.log") explode(path);
    if (path == "TestNet/b.log") throw 7;
  };
  EXPECT_TRUE(Pack({"TestNet"}));
  files_.before_type = explode;
  EXPECT_FALSE(Pack({"TestNet"}));
  ExpectNothingLeft("dump");

  fs::remove(kDump);
  files_.before_remove = explode;
  EXPECT_FALSE(Pack());
  EXPECT_THAT(
      log_.Lines(),
      LogHas({"[ERROR] Error preparing directory/removing old zip [dumps/core_RIG-7_CRASH.zip]: no "
              "memory",
              "[ERROR] Exception processing entry [TestNet/a.log] for zip: no memory",
              "[ERROR] Unknown exception processing entry [TestNet/b.log] for zip.",
              "[ERROR] Exception creating zip 'dumps/core_RIG-7_CRASH.zip': no memory",
              "[WARN] Exception during zip file cleanup: no memory"}));
}

TEST_F(ReportArchiveTest, NamesTheZipWithoutAComputerName) {
  EXPECT_EQ(archive_.MakeReportZipPath(kDump, "CRASH"), kZip);
  host_.FailNext("system.ComputerName", 111);
  EXPECT_EQ(archive_.MakeReportZipPath(kDump, "LIVE_FD"), "dumps/core_UNKNOWN_LIVE_FD.zip");
}

// A disk that takes no more than so many bytes of one file.
class DiskLimit {
 public:
  explicit DiskLimit(rlim_t bytes) : old_handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &old_limit_);
    const rlimit limit{bytes, old_limit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~DiskLimit() {
    setrlimit(RLIMIT_FSIZE, &old_limit_);
    std::signal(SIGXFSZ, old_handler_);
  }
  DiskLimit(const DiskLimit&) = delete;
  DiskLimit& operator=(const DiskLimit&) = delete;

 private:
  void (*old_handler_)(int);
  rlimit old_limit_{};
};

TEST_F(ReportArchiveTest, FullDiskFailsTheRunWhereverItFills) {
  const std::string bytes = Noise(400'000);
  host_.PutFile(kDump, bytes);
  host_.PutFile("node.log", Noise(200'000));
  ASSERT_TRUE(Pack({"node.log"}));
  const auto whole = fs::file_size(kZip);

  const std::pair<std::uintmax_t, std::string> rows[] = {
      {100'000,
       "[ERROR] mz_zip_writer_add_read_buf_callback() failed for dump file [core.dmp]. Error: "
       "compression failed"},
      {500'000,
       "[ERROR] mz_zip_writer_add_file() failed for optional file [node.log]. Error: compression "
       "failed"},
      {500'000, "[ERROR] mz_zip_writer_finalize_archive() failed! Error: file write failed"},
      {whole - 1, "[ERROR] mz_zip_writer_finalize_archive() failed! Error: file close failed"},
  };
  for (const auto& [room, error] : rows) {
    SCOPED_TRACE(room);
    {
      const DiskLimit limit(room);
      EXPECT_FALSE(Pack({"node.log"}));
    }
    EXPECT_THAT(log_.Lines(), LogHas({error}));
    ExpectNothingLeft(bytes);
  }
  const DiskLimit limit(whole);
  EXPECT_TRUE(Pack({"node.log"}));
}

// What the C library still held of the dump is gone with the write that failed.
TEST_F(ReportArchiveTest, RoomThatComesBackTooLateFailsTheRun) {
  const std::string bytes = Noise(400'000);
  host_.PutFile(kDump, bytes);
  host_.PutFile("node.log", Noise(200'000));
  auto limit = std::make_optional<DiskLimit>(400'000);
  files_.before_exists = [&](const fs::path& path) {
    if (path == "late.log") limit.reset();
  };
  EXPECT_FALSE(Pack({"node.log", "late.log"}));
  ExpectNothingLeft(bytes);
}

TEST(ReportArchiveSweep, LosesNothingWhateverFails) {
  support::SweepFaults([](SimulatedHost& host) {
    const std::string dump = support::DumpBytes(150'000);
    host.PutFile(kDump, dump);
    host.PutFile(kZip, "an older zip");
    host.PutFile("hostInfo.txt", "host");
    host.PutFile("TestNet/old/node.log", "log");
    support::LogRecorder log(host);
    console::TransferProgress progress;
    ReportArchive archive(host.files, host.system, host.clock, log.Sink(), progress);

    const fs::path zip = archive.MakeReportZipPath(kDump, "CRASH");
    const bool packed = archive.CreateReportZip(zip, kDump, {"hostInfo.txt", "TestNet"});

    EXPECT_EQ(SimulatedHost::ReadFile(kDump), dump);
    EXPECT_EQ(progress.Percentage(), packed ? 100.0 : console::TransferProgress::kHidden);
    const auto& fired = host.choke.faults.Fired();
    if (packed) {
      const auto entries = ReadZip(zip);
      ASSERT_FALSE(entries.empty());
      EXPECT_EQ(entries[0], (ZipEntry{"core.dmp", dump}));
      if (fired.empty()) {
        EXPECT_EQ(entries.size(), 4u);
        EXPECT_THAT(log.Lines(), LogLacks("[ERROR]"));
      }
    } else {
      ASSERT_FALSE(fired.empty());
      EXPECT_THAT(log.Lines(), testing::Contains(testing::HasSubstr("[ERROR]")));
      EXPECT_TRUE(!fs::exists(zip) || SimulatedHost::ReadFile(zip) == "an older zip");
    }
  });
}

// Writes a dump of more than 4 GiB and packs it; takes a minute and little room on the disk.
TEST_F(ReportArchiveTest, SlowDumpAbove4GiB) {
  constexpr std::uint64_t kSize = (4ull << 30) + 5'000'001;
  const std::string tail = Noise(100'000);
  host_.PutFile(kDump, Noise(100'000));
  fs::resize_file(kDump, kSize - tail.size());
  std::ofstream(kDump, std::ios::binary | std::ios::app) << tail;
  host_.PutFile("hostInfo.txt", "host");

  ASSERT_TRUE(Pack({"hostInfo.txt"}));
  ExpectReadersAccept(kZip);
  EXPECT_EQ(fs::file_size(kDump), kSize);
}

}  // namespace
}  // namespace vosk::report
