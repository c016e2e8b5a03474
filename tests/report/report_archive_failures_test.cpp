#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <optional>

#include "tests/report/archive_scene.h"
#include "tests/support/sweep.h"

namespace vosk::report {
namespace {

namespace fs = std::filesystem;
using support::LogHas;
using support::LogLacks;
using support::SimulatedHost;

using ReportArchiveFailures = ArchiveScene;

TEST_F(ReportArchiveFailures, DumpThatCannotBePackedWholeFailsTheRun) {
  const std::string bytes = Noise(300'000);
  const std::string cannot_open =
      "[ERROR] Failed to open dump file for zip compression: dumps/core.dmp";
  const std::string cannot_add =
      "[ERROR] mz_zip_writer_add_read_buf_callback() failed for dump file [core.dmp]. Error: file "
      "read failed";
  const auto at_second_read = [](const std::function<void()>& meddle) {
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
    EXPECT_THAT(NewLines(), LogHas({row.error,
                                    "[ERROR] Zip archive creation failed. Attempting to delete "
                                    "potentially incomplete file: dumps/core_RIG-7_CRASH.zip"}));
    ExpectNothingLeft(row.bytes_after);
    files_.before_read = nullptr;
    host_.choke.faults.Clear();
    host_.files.Release(kDump);
  }
}

// A dump that the monitor has only begun counts as whole when it is empty for good.
TEST_F(ReportArchiveFailures, EmptyDumpThatGrowsFailsTheRun) {
  host_.PutFile(kDump, "");
  files_.before_read = [](int) { std::ofstream(kDump, std::ios::app) << "begun"; };
  EXPECT_FALSE(Pack());
  ExpectNothingLeft("begun");
}

TEST_F(ReportArchiveFailures, TargetThatCannotBeOpenedFailsTheRun) {
  host_.PutFile(kDump, "dump");
  host_.PutFile(kZip / "inside", "a folder of this name");
  EXPECT_FALSE(Pack());
  EXPECT_TRUE(fs::exists(kZip / "inside"));
  EXPECT_EQ(SimulatedHost::ReadFile(kDump), "dump");
  EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
  EXPECT_THAT(NewLines(),
              LogHas({"[WARN] Failed to remove existing zip file [dumps/core_RIG-7_CRASH.zip] (The "
                      "directory is not empty.). Attempting to overwrite.",
                      "[ERROR] mz_zip_writer_init_file_v2() failed for dumps/core_RIG-7_CRASH.zip! "
                      "Error: file open failed"}));
}

TEST_F(ReportArchiveFailures, MakesTheTargetsDirectoryOrSaysWhyNot) {
  host_.PutFile(kDump, "dump");
  EXPECT_TRUE(archive_.CreateReportZip("new/deep/r.zip", kDump, {}));
  EXPECT_TRUE(fs::exists("new/deep/r.zip"));
  host_.PutFile("file", "");
  EXPECT_FALSE(archive_.CreateReportZip("file/r.zip", kDump, {}));
  EXPECT_THAT(NewLines(), LogHas({"[ERROR] Failed to create directory for zip file [file]. Error: "
                                  "Cannot create a file when that file already exists."}));
  EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
}

TEST_F(ReportArchiveFailures, ZipThatCannotBeDeletedIsNamed) {
  host_.files.Hold(kZip, {.read = true, .remove = false});
  EXPECT_FALSE(Pack());
  EXPECT_THAT(
      NewLines(),
      LogHas(
          {"[WARN] Failed to delete incomplete/failed zip file: dumps/core_RIG-7_CRASH.zip. Error: "
           "The process cannot access the file because it is being used by another process."}));
}

TEST_F(ReportArchiveFailures, ExceptionsEndInTheLog) {
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
  EXPECT_THAT(NewLines(),
              LogHas({"[ERROR] Error preparing directory/removing old zip "
                      "[dumps/core_RIG-7_CRASH.zip]: no memory",
                      "[ERROR] Exception processing entry [TestNet/a.log] for zip: no memory",
                      "[ERROR] Unknown exception processing entry [TestNet/b.log] for zip.",
                      "[ERROR] Exception creating zip 'dumps/core_RIG-7_CRASH.zip': no memory",
                      "[WARN] Exception during zip file cleanup: no memory"}));
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

TEST_F(ReportArchiveFailures, FullDiskFailsTheRunWhereverItFills) {
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
    EXPECT_THAT(NewLines(), testing::Contains(error));
    ExpectNothingLeft(bytes);
  }
  const DiskLimit limit(whole);
  EXPECT_TRUE(Pack({"node.log"}));
}

// What the C library still held of the dump is gone with the write that failed.
TEST_F(ReportArchiveFailures, RoomThatComesBackTooLateFailsTheRun) {
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

}  // namespace
}  // namespace vosk::report
