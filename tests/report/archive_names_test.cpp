#include "report/archive_names.h"

#include <gtest/gtest.h>

namespace vosk::report {
namespace {

TEST(ArchiveNames, NamesTheZipAfterDumpMachineAndTag) {
  EXPECT_EQ(ReportZipPath("D:/dumps/VELDRAN Core.exe_250301_090000.dmp", "RIG-7", "CRASH"),
            "D:/dumps/VELDRAN Core.exe_250301_090000_RIG-7_CRASH.zip");
  EXPECT_EQ(ReportZipPath("live", "K\xc3\x96LN", "LIVE_FD"), "live_K\xc3\x96LN_LIVE_FD.zip");
}

TEST(ArchiveNames, PutsFilesAtTheTopAndHostInformationIntoItsFolder) {
  const std::pair<std::string, std::string> rows[] = {
      {"logs/hostInfo.txt", "hostinfo/hostInfo.txt"},
      {"hostInfo", "hostinfo/hostInfo"},
      {"hostInfo.json", "hostinfo/hostInfo.json"},
      {"core_hostInfo.txt", "core_hostInfo.txt"},
      {"hostinfo.txt", "hostinfo.txt"},
      {"logs/node.log", "node.log"},
      {"odd\\name.log", "odd/name.log"},
  };
  for (const auto& [path, entry] : rows) EXPECT_EQ(FileEntryName(path), entry);
}

TEST(ArchiveNames, NamesFoldersAfterTheirDirectory) {
  const std::pair<std::string, std::string> rows[] = {
      {"stats/TestNet", "TestNet"}, {"stats/TestNet/", "additional_files"},
      {".", "additional_files"},    {"..", "additional_files"},
      {"/", "additional_files"},    {"", "additional_files"},
      {"a/..", "additional_files"},
  };
  for (const auto& [path, folder] : rows) EXPECT_EQ(FolderEntryName(path), folder) << path;
  EXPECT_EQ(EntryNameInFolder("TestNet", "old\\2024/a.log"), "TestNet/old/2024/a.log");
}

}  // namespace
}  // namespace vosk::report
