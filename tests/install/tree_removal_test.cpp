#include "install/tree_removal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/checked_host.h"

namespace vosk::install {
namespace {

namespace fs = std::filesystem;
using support::CheckedHost;
using support::SimulatedHost;
using testing::ElementsAre;
using testing::HasSubstr;

// A work directory with a link to a directory outside it.
void PutTree(SimulatedHost& host) {
  host.PutFile("C:/Temp/Work/a.log", "12345");
  host.PutFile("C:/Temp/Work/deep/down/b.msi", "1234567");
  host.PutFile("C:/Temp/Workbench/mine", "x");
  host.PutFile("C:/Elsewhere/mine", "not for us");
  fs::create_directories("C:/Temp/Work/empty");
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), "C:/Temp/Work/deep/link");
}

TEST(RemoveTree, TakesEverythingInsideAndNothingBehindALink) {
  CheckedHost host;
  PutTree(host);
  EXPECT_EQ(TreeSize(host.files, "C:/Temp/Work/"), 12u);
  EXPECT_TRUE(RemoveTree(host.files, "C:/Temp/Work/", "C:/Temp/"));
  EXPECT_THAT(SimulatedHost::NamesIn("C:/Temp"), ElementsAre("Workbench"));
  EXPECT_EQ(SimulatedHost::ReadFile("C:/Elsewhere/mine"), "not for us");
  EXPECT_TRUE(RemoveTree(host.files, "C:/Temp/Work", "C:/Temp")) << "it is gone already";
  EXPECT_TRUE(RemoveTree(host.files, "C:/Temp/Work/deep/down", "C:/Temp"));
  EXPECT_EQ(TreeSize(host.files, "C:/Temp/Work"), 0u);
}

TEST(RemoveTree, TakesALinkOrAFileForItself) {
  CheckedHost host;
  PutTree(host);
  // The separator at the end would lead to the link's target.
  for (const fs::path path : {"C:/Temp/Work/deep/link/", "C:/Temp/Work/a.log"}) {
    EXPECT_TRUE(RemoveTree(host.files, path, path));
  }
  fs::create_symlink("nowhere", "C:/Temp/Work/dangling");
  EXPECT_TRUE(RemoveTree(host.files, "C:/Temp/Work/dangling", "C:/Temp/Work"));
  EXPECT_THAT(SimulatedHost::NamesIn("C:/Temp/Work"), ElementsAre("deep", "empty"));
  EXPECT_THAT(SimulatedHost::NamesIn("C:/Temp/Work/deep"), ElementsAre("down"));
  EXPECT_THAT(SimulatedHost::NamesIn("C:/Elsewhere"), ElementsAre("mine"));
}

TEST(RemoveTree, RefusesWhatDoesNotLieBelowItsLimit) {
  struct Row {
    fs::path path, limit;
    std::string reason;
  };
  const Row rows[] = {
      {"Temp/Work", "C:/Temp", "not an absolute path"},
      {"", "", "not an absolute path"},
      {"C:Temp", "C:Temp", "not an absolute path"},
      {"C:/Temp/Work", "Temp", "not an absolute path"},
      {"C:/Temp/Work/../Workbench", "C:/Temp/Work", "not an absolute path"},
      {"C:/Temp/Work", "C:/Temp/Work/..", "not an absolute path"},
      {"C:/Temp/Workbench", "C:/Temp/Work", "does not lie below 'C:/Temp/Work'"},
      {"C:/Temp", "C:/Temp/Work", "does not lie below 'C:/Temp/Work'"},
      {"D:/Temp/Work", "C:/Temp", "does not lie below 'C:/Temp'"},
      {"C:/", "C:/", "does not lie below"},
      {"C:/Temp/Work/deep/link/mine", "C:/Temp", "'C:/Temp/Work/deep/link' is a link"},
  };
  CheckedHost host;
  PutTree(host);
  const auto size_before = TreeSize(host.files, "C:/");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path.string() + " below " + row.limit.string());
    const auto removed = RemoveTree(host.files, row.path, row.limit);
    ASSERT_FALSE(removed);
    EXPECT_EQ(removed.error().code, platform::kInvalidParameter);
    EXPECT_THAT(removed.error().text, HasSubstr(row.reason));
  }
  host.FailNext("files.IsLink", 5);
  EXPECT_FALSE(RemoveTree(host.files, "C:/Temp/Work/a.log", "C:/Temp")) << "Work may be a link";
  EXPECT_EQ(TreeSize(host.files, "C:/"), size_before);
}

TEST(RemoveTree, GoesOnPastWhatItCannotRemove) {
  struct Row {
    std::string failing;
    std::uint32_t code;
  };
  for (const Row& row : {Row{"files.Walk", 5}, Row{"files.Walk.Next", 1392}}) {
    CheckedHost host;
    PutTree(host);
    host.files.Hold("C:/Temp/Work/deep/down/b.msi", {});
    auto removed = RemoveTree(host.files, "C:/Temp/Work", "C:/Temp/Work");
    ASSERT_FALSE(removed);
    EXPECT_EQ(removed.error().code, platform::kSharingViolation);
    EXPECT_EQ(TreeSize(host.files, "C:/Temp/Work"), 7u);
    host.files.Release("C:/Temp/Work/deep/down/b.msi");
    // Why a directory could not be read tells more than that it is not empty.
    host.FailNext(row.failing, row.code);
    removed = RemoveTree(host.files, "C:/Temp/Work", "C:/Temp/Work");
    ASSERT_FALSE(removed);
    EXPECT_EQ(removed.error().code.value, row.code);
    EXPECT_TRUE(RemoveTree(host.files, "C:/Temp/Work", "C:/Temp/Work"));
  }
}

}  // namespace
}  // namespace vosk::install
