#include "report/archive/report_archive.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <optional>
#include <random>

#include "tests/report/zip_contents.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"
#include "tests/support/transcript.h"

namespace vosk::report {
namespace {

namespace fs = std::filesystem;
using support::LogHas;
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

// Packs, and says what comes of it.
std::string Pack(SimulatedHost& host, console::LogSink& log) {
  console::TransferProgress progress;
  ReportArchive archive(host.files, host.system, host.clock, log, progress);
  const fs::path zip = archive.MakeReportZipPath(kDump, "CRASH");
  const bool packed =
      archive.CreateReportZip(zip, kDump, {"hostInfo.txt", "missing.log", "pipe", "TestNet"});
  std::string text =
      fmt::format("packed: {}, display: {} '{}', dump: '{}'\n", packed, progress.Percentage(),
                  progress.ActivityLabel(), fs::exists(kDump) ? host.ReadFile(kDump) : "none");
  if (!packed) return text + (fs::exists(zip) ? host.ReadFile(zip) : "no zip");
  for (const auto& [name, bytes] : ReadZip(zip)) text += name + ": '" + bytes + "'\n";
  return text;
}

TEST(ReportArchiveFaults, OfADumpWithItsFiles) {
  support::ExpectFaultTranscript("report/archive_faults.txt",
                                 {.arrange =
                                      [](SimulatedHost& host) {
                                        host.PutFile(kDump, "dump");
                                        host.PutFile(kZip, "an older zip, longer than the new one");
                                        host.PutFile("hostInfo.txt", "host");
                                        host.PutFile("TestNet/old/node.log", "log");
                                        mkfifo("pipe", 0600);
                                        mkfifo("TestNet/pipe", 0600);
                                      },
                                  .act = Pack});
}

TEST(ReportArchiveFaults, OfADumpThatIsGoneWithItsDirectory) {
  support::ExpectFaultTranscript("report/archive_of_nothing_faults.txt", {.act = Pack});
}

class ReportArchiveTest : public testing::Test {
 protected:
  bool Pack(const std::vector<fs::path>& optional_paths = {}) {
    return archive_.CreateReportZip(kZip, kDump, optional_paths);
  }
  void ExpectNothingLeft(const std::string& dump_bytes) {
    EXPECT_FALSE(fs::exists(kZip));
    EXPECT_EQ(host_.ReadFile(kDump), dump_bytes);
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }

  support::CheckedHost host_;
  support::MeddlingFiles files_{host_.files};
  support::LogRecorder log_{host_};
  console::TransferProgress progress_;
  ReportArchive archive_{files_, host_.system, host_.clock, log_.Sink(), progress_};
};

TEST_F(ReportArchiveTest, PacksDumpFilesAndDirectoriesInOrder) {
  const std::string dump = Noise(262'144);
  host_.PutFile(kDump, dump);
  host_.PutFile("info/hostInfo.txt", "host");
  host_.PutFile("info/core_hostInfo.txt", "core");
  host_.PutFile("TestNet/old/K\u00f6ln \u65e5\u672c.log", "old");
  host_.PutFile("TestNet/old/empty.log", "");
  fs::create_directories("TestNet/void");
  fs::create_directory_symlink("..", "TestNet/old/loop");
  std::vector<double> shown;
  const auto look = [&] {
    if (shown.empty() || shown.back() != progress_.Percentage()) {
      shown.push_back(progress_.Percentage());
    }
  };
  files_.before_read = [&](int) { host_.clock.Advance(std::chrono::seconds(1)); };
  log_.Sink().SetRedrawHook(look);

  EXPECT_TRUE(Pack({"info/hostInfo.txt", "info/core_hostInfo.txt", "TestNet", "info/."}));

  const std::vector<ZipEntry> expected = {
      {"core.dmp", dump},
      {"hostinfo/hostInfo.txt", "host"},
      {"core_hostInfo.txt", "core"},
      {"TestNet/old/", ""},
      {"TestNet/old/K\u00f6ln \u65e5\u672c.log", "old"},
      {"TestNet/old/empty.log", ""},
      {"TestNet/old/loop/", ""},
      {"TestNet/void/", ""},
      {"additional_files/core_hostInfo.txt", "core"},
      {"additional_files/hostInfo.txt", "host"},
  };
  EXPECT_EQ(ReadZip(kZip), expected);
  ExpectReadersAccept(kZip);
  EXPECT_EQ(shown, (std::vector<double>{-1, 47.5, 71.25, 95, 90}));
  EXPECT_EQ(progress_.Percentage(), 100.0);
}

TEST_F(ReportArchiveTest, PacksDumpsOfEverySmallSize) {
  for (const std::size_t size : {0, 1, 65'536, 65'537}) {
    host_.PutFile(kDump, Noise(size));
    EXPECT_TRUE(Pack()) << size;
    EXPECT_EQ(ReadZip(kZip), (std::vector<ZipEntry>{{"core.dmp", Noise(size)}}));
  }
}

// The Core may still write to the log that is being packed, or put it away. Only an error of the
// disk leaves it out, and what was written of it by then must not bury the archive's directory.
TEST_F(ReportArchiveTest, LogThatChangesWhileItIsPackedGoesInAsItWas) {
  const std::string log = Noise(2'000'000);
  host_.PutFile(kDump, "dump");
  std::string change;
  files_.before_read = [&](int reads) {
    if (reads != 20) return;
    if (change == "breaks") throw std::runtime_error("bad sector");
    fs::resize_file("node.log", change == "grows" ? 2'000'100 : 100'000);
  };
  std::string told;
  for (const char* what : {"grows", "shrinks", "breaks"}) {
    change = what;
    host_.PutFile("node.log", log);
    EXPECT_TRUE(Pack({"node.log"}));
    std::vector<ZipEntry> expected = {{"core.dmp", "dump"}};
    // 20 reads of 64 KiB come before the change.
    if (change == "grows") expected.emplace_back("node.log", log);
    if (change == "shrinks") expected.emplace_back("node.log", log.substr(0, 20 * 65'536));
    EXPECT_EQ(ReadZip(kZip), expected) << what;
    ExpectReadersAccept(kZip);
    told += log_.Lines().at(log_.Lines().size() - 2) + '\n';
  }
  EXPECT_EQ(
      told,
      "[INFO] Added optional file [node.log]\n"
      "[INFO] Added optional file [node.log]\n"
      "[ERROR] mz_zip_writer_add_file() failed for optional file [node.log]. Error: file read "
      "failed\n");
}

TEST_F(ReportArchiveTest, DumpThatChangesWhileItIsPackedFailsTheRun) {
  struct Row {
    std::string before;
    int read;  // the one before which it changes
    std::size_t after;
  };
  // A dump that the monitor has only begun counts as whole when it is empty for good.
  for (const auto& [before, read, after] :
       {Row{Noise(300'000), 1, 70'000}, Row{Noise(300'000), 1, 300'004}, Row{"", 0, 4}}) {
    host_.PutFile(kDump, before);
    files_.before_read = [&](int reads) {
      if (reads == read) fs::resize_file(kDump, after);
    };
    EXPECT_FALSE(Pack());
    std::string bytes = before;
    bytes.resize(after);
    ExpectNothingLeft(bytes);
  }
}

TEST_F(ReportArchiveTest, TargetThatCannotBeOpenedFailsTheRun) {
  host_.PutFile(kDump, "dump");
  host_.PutFile(kZip / "inside", "a folder of this name");
  EXPECT_FALSE(Pack());
  EXPECT_TRUE(fs::exists(kZip / "inside"));
  EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
  EXPECT_THAT(log_.Lines(),
              LogHas({"[ERROR] mz_zip_writer_init_file_v2() failed for dumps/core_RIG-7_CRASH.zip! "
                      "Error: file open failed"}));
}

// What goes wrong in one entry ends that entry alone.
TEST_F(ReportArchiveTest, ExceptionsEndInTheLog) {
  const auto explode = [](const fs::path&) { throw std::runtime_error("no memory"); };
  host_.PutFile(kDump, "dump");
  for (const char* path : {"one/a", "two/b", "logs/gone", "logs/kept"}) host_.PutFile(path, "log");
  files_.before_create_directories = explode;
  EXPECT_FALSE(Pack());
  files_.before_create_directories = [](const fs::path&) {};

  files_.before_type = [&](const fs::path& path) {
    if (path == "one/a") explode(path);
    if (path == "two/b") throw 7;
  };
  files_.after_type = [](const fs::path& path) {
    if (path == "logs/gone") fs::remove(path);
  };
  EXPECT_TRUE(Pack({"one", "two", "logs"}));
  EXPECT_EQ(ReadZip(kZip), (std::vector<ZipEntry>{{"core.dmp", "dump"}, {"logs/kept", "log"}}));
  files_.before_type = explode;
  EXPECT_FALSE(Pack({"logs"}));
  ExpectNothingLeft("dump");

  fs::remove(kDump);
  files_.before_remove = explode;
  EXPECT_FALSE(Pack());
  EXPECT_THAT(
      log_.Lines(),
      LogHas(
          {"[ERROR] Error preparing directory/removing old zip "
           "[dumps/core_RIG-7_CRASH.zip]: no memory",
           "[ERROR] Exception processing entry [one/a] for zip: no memory",
           "[WARN] Issues encountered adding directory contents from: one",
           "[ERROR] Unknown exception processing entry [two/b] for zip.",
           "[WARN] Issues encountered adding directory contents from: two",
           "[ERROR] Failed to add file [logs/gone] as [logs/gone] to zip. Error: file stat failed",
           "[WARN] Issues encountered adding directory contents from: logs",
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

TEST_F(ReportArchiveTest, FullDiskFailsTheRunWhereverItFills) {
  const std::string bytes = Noise(400'000);
  host_.PutFile(kDump, bytes);
  host_.PutFile("node.log", Noise(200'000));
  fs::create_directories("TestNet/folder");
  const std::vector<fs::path> paths = {"node.log", "TestNet"};
  ASSERT_TRUE(Pack(paths));
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
    std::optional<DiskLimit> limit(room);
    EXPECT_FALSE(Pack(paths)) << room;
    limit.reset();
    EXPECT_THAT(log_.Lines(), testing::Contains(error)) << room;
    ExpectNothingLeft(bytes);
  }
  const DiskLimit limit(whole);
  EXPECT_TRUE(Pack(paths));
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

// Writes a dump of more than 4 GiB and packs it; takes 20 seconds and little room on the disk.
TEST_F(ReportArchiveTest, SlowDumpAbove4GiB) {
  constexpr std::uint64_t kSize = (4ull << 30) + 5'000'001;
  const std::string tail = Noise(100'000);
  host_.PutFile(kDump, Noise(100'000));
  fs::resize_file(kDump, kSize - tail.size());
  std::ofstream(kDump, std::ios::binary | std::ios::app) << tail;
  host_.PutFile("hostInfo.txt", "host");

  ASSERT_TRUE(Pack({"hostInfo.txt"}));
  ExpectReadersAccept(kZip, true);
  EXPECT_EQ(fs::file_size(kDump), kSize);
}

}  // namespace
}  // namespace vosk::report
