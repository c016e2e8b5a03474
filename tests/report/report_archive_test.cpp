#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "tests/report/archive_scene.h"

namespace vosk::report {
namespace {

namespace fs = std::filesystem;
using support::LogHas;
using support::LogIs;

using ReportArchiveTest = ArchiveScene;

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
  EXPECT_THAT(
      NewLines(),
      LogIs({"[INFO] Creating Zip archive: dumps/core_RIG-7_CRASH.zip",
             "[INFO] Added dump file [core.dmp] to zip.",
             "[INFO] Added optional file [hostinfo/hostInfo.txt]",
             "[INFO] Added optional file [core_hostInfo.txt]",
             "[INFO] Adding optional directory: TestNet as TestNet/",
             "[INFO] Adding directory to zip: [TestNet] as [TestNet]",
             "[INFO] Successfully added contents of directory [TestNet] as [TestNet]",
             "[INFO] Adding optional directory: info/. as additional_files/",
             "[INFO] Adding directory to zip: [info/.] as [additional_files]",
             "[INFO] Successfully added contents of directory [info/.] as [additional_files]",
             "[INFO] Successfully created zip archive structure: dumps/core_RIG-7_CRASH.zip"}));
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
  host_.PutFile(kDump, Noise(262'144));
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
      NewLines(),
      LogHas({
          "[WARN] Optional path not found or error checking [missing.log], skipping. Error: No "
          "such file or directory",
          "[WARN] Optional path not found or error checking [guarded.log], skipping. Error: Access "
          "is denied.",
          "[ERROR] Error checking type of optional path [strange.log]: Access is denied.",
          "[WARN] Optional path is not a regular file, skipping: pipe",
          "[ERROR] mz_zip_writer_add_file() failed for optional file [gone.log]. Error: file stat "
          "failed",
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
  EXPECT_THAT(NewLines(), LogHas({"[ERROR] mz_zip_writer_add_file() failed for optional file "
                                  "[grow.log]. Error: file read failed"}));
  EXPECT_EQ(ReadZip(kZip), (std::vector<ZipEntry>{{"core.dmp", "dump"}}));
  ExpectReadersAccept(kZip);
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
  EXPECT_THAT(NewLines(),
              LogHas({"[WARN] Failed to remove existing zip file [dumps/core_RIG-7_CRASH.zip] (The "
                      "process cannot access the file because it is being used by another "
                      "process.). Attempting to overwrite."}));
}

TEST_F(ReportArchiveTest, NamesTheZipWithoutAComputerName) {
  EXPECT_EQ(archive_.MakeReportZipPath(kDump, "CRASH"), kZip);
  host_.FailNext("system.ComputerName", 111);
  EXPECT_EQ(archive_.MakeReportZipPath(kDump, "LIVE_FD"), "dumps/core_UNKNOWN_LIVE_FD.zip");
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
