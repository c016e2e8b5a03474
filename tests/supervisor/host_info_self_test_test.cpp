#include "supervisor/host_info_self_test.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "report/host_info.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"

namespace vosk::supervisor {
namespace {

using support::LogIs;
using support::LogText;

const std::filesystem::path kDirectory = "C:/Users/op/AppData/Local/Temp/VELDRAN_VOSK_Dumps";
const std::filesystem::path kTestFile = kDirectory / "VOSK_HostInfo_Test.txt";

class SelfTest : public testing::Test {
 protected:
  SelfTest() { std::filesystem::create_directories(kDirectory); }

  // The lines between the first two and the last, which are always the same.
  LogText Run(HostInfoSelfTest::GenerateReport generate_report) {
    HostInfoSelfTest test(host_.clock, host_.files, log_.Sink(), std::move(generate_report));
    test.Run(kDirectory);
    LogText lines = log_.Lines();
    EXPECT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "[INFO] --- Testing Host Info Report Generation ---");
    EXPECT_EQ(lines[1], "[INFO] Test host info file path: " + kTestFile.string());
    EXPECT_EQ(lines.back(), "[INFO] --- Host Info Report Generation Test Complete ---");
    return {lines.begin() + 2, lines.end() - 1};
  }

  // Takes 1,250 ms to write a text.
  HostInfoSelfTest::GenerateReport Writing(std::string text) {
    return [this, text](const std::filesystem::path& path) {
      host_.clock.SleepFor(std::chrono::milliseconds(1250));
      host_.PutFile(path, text);
      return true;
    };
  }

  support::CheckedHost host_;
  support::LogRecorder log_{host_};
};

constexpr const char* kSuccess = "[INFO] ? Host info generation test SUCCESSFUL. Duration: 1250ms";
constexpr const char* kCleanedUp = "[INFO] ? Test file cleaned up successfully";

TEST_F(SelfTest, ShowsTheFirstFiveLinesOfTheReport) {
  EXPECT_THAT(Run(Writing("one\r\ntwo\r\n\r\nfour\nfive\nsix\n")),
              LogIs({kSuccess, "[INFO] ? Test file created successfully. Size: 26 bytes",
                     "[INFO] Test file preview:", "[INFO]   one", "[INFO]   two", "[INFO]   ",
                     "[INFO]   four", "[INFO]   five", kCleanedUp}));
  EXPECT_FALSE(std::filesystem::exists(kTestFile));
}

TEST_F(SelfTest, AShortReportIsShownWhole) {
  EXPECT_THAT(Run(Writing("only")),
              LogIs({kSuccess, "[INFO] ? Test file created successfully. Size: 4 bytes",
                     "[INFO] Test file preview:", "[INFO]   only", kCleanedUp}));
}

TEST_F(SelfTest, AnEmptyReportIsAnError) {
  EXPECT_THAT(Run(Writing("")),
              LogIs({kSuccess, "[ERROR] ? Test file exists but is empty or error reading size",
                     kCleanedUp}));
  EXPECT_FALSE(std::filesystem::exists(kTestFile));
}

TEST_F(SelfTest, AReportThatIsNowhereIsAnError) {
  EXPECT_THAT(Run([](const auto&) { return true; }),
              LogIs({"[INFO] ? Host info generation test SUCCESSFUL. Duration: 0ms",
                     "[ERROR] ? Test file was not created or cannot be accessed"}));
}

TEST_F(SelfTest, TroubleWithTheFileIsTold) {
  host_.FailNext("files.OpenForReading", 32);
  host_.FailNext("files.Remove", 5);
  EXPECT_THAT(
      Run(Writing("text")),
      LogIs({kSuccess, "[INFO] ? Test file created successfully. Size: 4 bytes",
             "[INFO] Test file preview:",
             "[WARN] Could not read test file: The process cannot access the file because it is "
             "being used by another process.",
             "[WARN] Could not delete test file: Access is denied."}));
}

const LogText kFailure = {"[ERROR] ? Host info generation test FAILED",
                          "[ERROR] This may indicate issues with gathering system information",
                          "[WARN] Crash reports may have incomplete host information"};

TEST_F(SelfTest, AFailureIsTold) {
  EXPECT_THAT(Run([](const auto&) { return false; }), LogIs(kFailure));
}

TEST_F(SelfTest, AFailureLeavesNoPartOfAReport) {
  LogText wanted = kFailure;
  wanted.push_back("[WARN] Partial test file exists, attempting cleanup");
  EXPECT_THAT(Run([this](const auto& path) {
                host_.PutFile(path, "half a rep");
                return false;
              }),
              LogIs(wanted));
  EXPECT_FALSE(std::filesystem::exists(kTestFile));
}

TEST_F(SelfTest, ExceptionsDoNotLeaveTheTest) {
  EXPECT_THAT(Run([](const auto&) -> bool { throw std::runtime_error("no memory"); }),
              LogIs({"[ERROR] ? Exception during host info test: no memory"}));
}

TEST_F(SelfTest, NorDoesAnythingElseThatIsThrown) {
  EXPECT_THAT(Run([](const auto&) -> bool { throw 42; }),
              LogIs({"[ERROR] ? Unknown exception during host info test"}));
}

TEST_F(SelfTest, TheRealReportPasses) {
  const std::string core_version = "2.14.3";
  const report::ProcessModules modules;
  report::HostInfo host_info(host_.Bundle(), log_.Sink(), {"3.3", core_version, modules});
  const auto lines =
      Run([&](const std::filesystem::path& path) { return host_info.GenerateHostInfoFile(path); });
  EXPECT_THAT(lines, support::LogHas({"[INFO] Test file preview:",
                                      "[INFO]   --- VELDRAN Crash Report - Host Information ---",
                                      "[INFO]   Report Generated (UTC): 2025-03-01 08:00:00 UTC",
                                      "[INFO]   Local Time:           2025-03-01 09:00:00",
                                      "[INFO]   ---------------------------------------------",
                                      "[INFO]   VOSK Version:            3.3", kCleanedUp}));
}

}  // namespace
}  // namespace vosk::supervisor
