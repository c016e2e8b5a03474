#include "report/archive/archive_names.h"

#include <gtest/gtest.h>

namespace vosk::report {
namespace {

TEST(ArchiveNames, AreMadeOfPaths) {
  using Rows = std::pair<std::string, std::string>[];
  for (const auto& [path, zip] : Rows{{"D:/dumps/VELDRAN Core.exe_250301.dmp",
                                       "D:/dumps/VELDRAN Core.exe_250301_K\u00d6LN_LIVE_FD.zip"},
                                      {"live", "live_K\u00d6LN_LIVE_FD.zip"}}) {
    EXPECT_EQ(ReportZipPath(path, "K\u00d6LN", "LIVE_FD"), zip);
  }
  for (const auto& [path, entry] : Rows{{"logs/hostInfo.txt", "hostinfo/hostInfo.txt"},
                                        {"hostInfo", "hostinfo/hostInfo"},
                                        {"core_hostInfo.txt", "core_hostInfo.txt"},
                                        {"hostinfo.txt", "hostinfo.txt"},
                                        {"odd\\name.log", "odd/name.log"}}) {
    EXPECT_EQ(FileEntryName(path), entry);
  }
  for (const auto& [path, folder] : Rows{{"stats/TestNet", "TestNet"},
                                         {"stats/TestNet/", "additional_files"},
                                         {".", "additional_files"},
                                         {"a/..", "additional_files"}}) {
    EXPECT_EQ(FolderEntryName(path), folder);
  }
  EXPECT_EQ(EntryNameInFolder("TestNet", "old\\2024/a.log"), "TestNet/old/2024/a.log");
}

}  // namespace
}  // namespace vosk::report
