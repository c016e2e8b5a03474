#include "install/core_version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"

namespace vosk::install {
namespace {

using support::CheckedHost;
using support::LogIs;
using support::LogRecorder;

TEST(CoreVersion, ReadsTheFirstLineAndTellsOfChanges) {
  CheckedHost host;
  LogRecorder log(host);
  CoreVersion version(host.files, log.Sink());
  host.PutFile("C:/stats/CoreVersion.txt", " \t1.2.3\r\nnothing else counts\n");
  EXPECT_EQ(version.Read("C:/stats", false), "1.2.3");
  EXPECT_EQ(version.Read("C:/stats", false), "1.2.3");
  EXPECT_EQ(version.Read("C:/stats", true), "1.2.3");
  host.PutFile("C:/stats/CoreVersion.txt", "1.3.0");
  EXPECT_EQ(version.Read("C:/stats", true), "1.3.0");
  EXPECT_EQ(version.Current(), "1.3.0");
  const std::string attempt =
      "[INFO] Attempting to read current core version from: C:/stats/CoreVersion.txt";
  EXPECT_THAT(
      log.Lines(),
      LogIs({attempt, "[INFO] Detected Core version changed/read: 1.2.3 (Previous known: 0.0.0)",
             attempt, "[INFO] Read current core version from file: 1.2.3 (Unchanged)",
             "[INFO] Detected Core version changed/read: 1.3.0 (Previous known: 1.2.3)"}));
}

TEST(CoreVersion, ComplainsOfTheSameOnlyOnce) {
  CheckedHost host;
  LogRecorder log(host);
  CoreVersion version(host.files, log.Sink());
  for (const char* contents : {"", "", " ", "1.2.3", ""}) {
    host.PutFile("C:/stats/CoreVersion.txt", contents);
    version.Read("C:/stats", true);
  }
  const std::string unreadable =
      "[WARN] Failed to read a line from CoreVersion.txt (file might be empty or read error "
      "occurred).";
  EXPECT_THAT(log.Lines(),
              LogIs({unreadable, "[WARN] CoreVersion.txt is empty.",
                     "[INFO] Detected Core version changed/read: 1.2.3 (Previous known: 0.0.0)",
                     unreadable}));
}

TEST(CoreVersion, KeepsWhatItKnowsWhereTheFileTellsNothing) {
  struct Row {
    std::string contents;
    std::string failing;
    std::string line;
  };
  const Row rows[] = {
      {"", "",
       "[WARN] Failed to read a line from CoreVersion.txt (file might be empty or read "
       "error occurred)."},
      {"  \r\n1.2.3", "", "[WARN] CoreVersion.txt is empty."},
      {"1.2.3", "files.OpenForReading",
       "[ERROR] Failed to open C:/stats/CoreVersion.txt for reading."},
      {"1.2.3", "files.Exists",
       "[ERROR] Error checking existence of C:/stats/CoreVersion.txt: Access is denied."},
      {"<missing>", "",
       "[WARN] CoreVersion.txt not found at expected location: C:/stats/CoreVersion.txt"},
  };
  for (const Row& row : rows) {
    CheckedHost host;
    LogRecorder log(host);
    CoreVersion version(host.files, log.Sink());
    version.Set("1.0.0");
    if (row.contents != "<missing>") host.PutFile("C:/stats/CoreVersion.txt", row.contents);
    if (!row.failing.empty()) host.FailNext(row.failing, 5);
    EXPECT_EQ(version.Read("C:/stats", true), "");
    EXPECT_EQ(version.Current(), "1.0.0");
    EXPECT_THAT(log.Lines(), LogIs({row.line}));
  }
  CheckedHost host;
  LogRecorder log(host);
  CoreVersion version(host.files, log.Sink());
  EXPECT_EQ(version.Read({}, true), "");
  EXPECT_THAT(log.Lines(),
              LogIs({"[WARN] Cannot read core version: Stats directory path is empty."}));
}

}  // namespace
}  // namespace vosk::install
