#include "console/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "tests/support/log_matchers.h"
#include "tests/support/sweep.h"

namespace vosk::console {
namespace {

using platform::StandardStream;
using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogOf;
using support::SimulatedHost;
using support::StreamTarget;
using testing::ElementsAre;

class LogTest : public testing::Test {
 protected:
  // The sink as start-up makes it.
  void SetUpConsole() {
    log_.EnableVirtualTerminal();
    log_.SetConsoleOutputValid(host_.console.HasStream(StandardStream::output));
  }
  std::string Out() { return host_.console.TextOf(StandardStream::output); }
  std::string Err() { return host_.console.TextOf(StandardStream::error); }

  CheckedHost host_;
  bool menu_visible_ = false;
  LogSink log_{host_.console, host_.files, host_.system, host_.clock, menu_visible_};
};

TEST_F(LogTest, ALineHasItsColoursAndItsStream) {
  SetUpConsole();
  const std::string head = "\x1b[29;1H\x1b[90m09:00:00\x1b[0m\x1b[90m [\x1b[0m\x1b[1m";
  const std::string tail = "\x1b[0m\x1b[90m]\x1b[0m \x1b[97mtext\x1b[0m\n";
  const struct {
    std::string level;
    std::string colour;
    bool to_error;
  } rows[] = {{"INFO", "\x1b[96m", false},
              {"WARN", "\x1b[93m", true},
              {"ERROR", "\x1b[91m", true},
              {"Info", "\x1b[96m", false},
              {"warn", "\x1b[96m", false}};
  for (const auto& row : rows) {
    host_.console.Forget();
    log_.LogMessage(row.level, "text");
    const std::string line = head + row.colour + row.level + tail;
    EXPECT_EQ(row.to_error ? Err() : Out(), line);
    EXPECT_EQ(host_.console.Text(), line) << "and nothing on the other stream";
  }
}

TEST_F(LogTest, WithoutEscapeSequencesALineIsPlain) {
  host_.console.understands_escapes = false;
  SetUpConsole();
  EXPECT_FALSE(log_.ColourEnabled());
  log_.LogInfo("first");
  log_.LogWarn("second");
  log_.LogError("third");
  EXPECT_EQ(Out(), "09:00:00 [INFO] first\n");
  EXPECT_EQ(Err(), "09:00:00 [WARN] second\n09:00:00 [ERROR] third\n");
}

TEST_F(LogTest, ColourAndPositionFollowTheStandardStreams) {
  constexpr auto kConsole = StreamTarget::console;
  constexpr auto kFile = StreamTarget::redirected;
  constexpr auto kNone = StreamTarget::missing;
  const struct {
    StreamTarget output;
    StreamTarget error;
    bool colour;
    bool positioned;
  } rows[] = {
      {kConsole, kConsole, true, true}, {kConsole, kFile, true, true},
      {kConsole, kNone, true, true},    {kFile, kConsole, true, false},
      {kFile, kFile, false, false},     {kNone, kConsole, true, false},
      {kNone, kNone, false, false},     {kFile, kNone, false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message()
                 << static_cast<int>(row.output) << " and " << static_cast<int>(row.error));
    host_.console.Redirect(StandardStream::output, row.output);
    host_.console.Redirect(StandardStream::error, row.error);
    SetUpConsole();
    EXPECT_EQ(log_.ColourEnabled(), row.colour);
    host_.console.Forget();
    log_.LogInfo("to output");
    log_.LogWarn("to error");
    const std::string written = host_.console.Text();
    if (row.output == kNone && row.error == kNone) continue;
    EXPECT_EQ(written.find("\x1b[9") != std::string::npos, row.colour) << written;
    EXPECT_EQ(written.find(";1H") != std::string::npos, row.positioned) << written;
    EXPECT_EQ(Out().empty(), row.output == kNone);
    EXPECT_EQ(Err().empty(), row.error == kNone);
  }
}

TEST_F(LogTest, EscapeSequencesAreSwitchedOnOnce) {
  EXPECT_FALSE(log_.EnableVirtualTerminal());
  EXPECT_EQ(host_.console.ModeOf(StandardStream::output), 7u);
  EXPECT_EQ(host_.console.ModeOf(StandardStream::error), 7u);
  host_.FailNext("console.SetMode", 87, 100);
  EXPECT_TRUE(log_.EnableVirtualTerminal()) << "the flag as it was";
  EXPECT_TRUE(log_.ColourEnabled()) << "the modes need no change";
}

TEST_F(LogTest, TheRowIsTheOneAboveTheStatusBar) {
  SetUpConsole();
  host_.console.info.top = 100;
  host_.console.info.bottom = 124;
  log_.LogInfo("text");
  EXPECT_THAT(Out(), testing::StartsWith("\x1b[24;1H\x1b[90m"));
  host_.console.Forget();
  log_.SetConsoleOutputValid(false);
  log_.LogInfo("text");
  EXPECT_THAT(Out(), testing::StartsWith("\x1b[90m09"));
}

TEST_F(LogTest, TheMenuHidesLinesAndTheLastTenAreKept) {
  host_.console.understands_escapes = false;
  SetUpConsole();
  log_.OpenLogFile();
  menu_visible_ = true;
  for (int n = 1; n <= 11; ++n) log_.LogInfo("line " + std::to_string(n));
  EXPECT_EQ(host_.console.Text(), "");
  ASSERT_EQ(log_.RecentLogLines().size(), 10u);
  EXPECT_EQ(log_.RecentLogLines().front(), "09:00:00 [INFO] line 2");
  EXPECT_EQ(log_.RecentLogLines().back(), "09:00:00 [INFO] line 11");
  EXPECT_THAT(LogOf(host_), LogHas({"[INFO] line 1", "[INFO] line 11"}));
  menu_visible_ = false;
  log_.LogInfo("line 12");
  EXPECT_EQ(Out(), "09:00:00 [INFO] line 12\n");
}

TEST_F(LogTest, ProgressShowsOverTheMenuAndIsNotKept) {
  SetUpConsole();
  log_.OpenLogFile();
  int redraws = 0;
  log_.SetRedrawHook([&] { ++redraws; });
  menu_visible_ = true;
  log_.LogProgress("Uploading 40%");
  EXPECT_EQ(Out(), "\x1b[92mUploading 40%\x1b[0m\n");
  EXPECT_THAT(log_.RecentLogLines(), ElementsAre());
  EXPECT_EQ(redraws, 0);
  EXPECT_EQ(host_.ReadFile(host_.LogFile()),
            "\n--- Log Session Start ---\n2025-03-01 09:00:00 [PROG] Uploading 40%\n");
}

TEST_F(LogTest, TheStatusBarIsRedrawnBehindEachLineUnderTheLock) {
  std::string seen;
  bool lock_was_free = true;
  log_.SetRedrawHook([&] {
    seen = host_.console.Text();
    const std::scoped_lock again(log_.ConsoleLock());
    std::thread([&] { lock_was_free = log_.ConsoleLock().try_lock(); }).join();
  });
  log_.LogInfo("text");
  EXPECT_EQ(seen, "09:00:00 [INFO] text\n");
  EXPECT_FALSE(lock_was_free);
  menu_visible_ = true;
  seen = "untouched";
  log_.LogInfo("hidden");
  EXPECT_EQ(seen, "untouched");
}

TEST_F(LogTest, EverySessionOpensWithItsHeader) {
  log_.OpenLogFile();
  log_.LogInfo("one");
  LogSink second(host_.console, host_.files, host_.system, host_.clock, menu_visible_);
  second.OpenLogFile();
  second.LogWarn("two");
  EXPECT_THAT(LogOf(host_), LogIs({"", "--- Log Session Start ---", "[INFO] one", "",
                                   "--- Log Session Start ---", "[WARN] two"}));
}

TEST_F(LogTest, WideTextIsConvertedOrMarked) {
  log_.OpenLogFile();
  log_.LogInfo(u"Gr\u00FC\u00DFe");
  log_.LogWarn(std::u16string(1, u'\xD800'));
  log_.LogError(u"");
  EXPECT_THAT(LogOf(host_), LogHas({"[INFO] Gr\xC3\xBC\xC3\x9F"
                                    "e",
                                    "[WARN] <WideCharToMultiByte Error: 1113>", "[ERROR] "}));
}

TEST_F(LogTest, AFullDiskSilencesTheFileOnlyForAWhile) {
  log_.OpenLogFile();
  log_.LogInfo("before");
  host_.files.disk_full = true;
  log_.LogInfo("lost");
  log_.LogProgress("lost as well");
  host_.files.disk_full = false;
  log_.LogInfo("after");
  EXPECT_EQ(host_.ReadFile(host_.LogFile()),
            "\n--- Log Session Start ---\n2025-03-01 09:00:00 [INFO] before\n"
            "2025-03-01 09:00:00 [INFO] after\n");
  EXPECT_EQ(Out(),
            "09:00:00 [INFO] before\n09:00:00 [INFO] lost\nlost as well\n"
            "09:00:00 [INFO] after\n");
}

TEST_F(LogTest, AFileThatCannotBeOpenedIsTold) {
  log_.LogInfo("before the file");
  host_.FailNext("files.OpenForAppending", 13);
  log_.OpenLogFile();
  log_.LogInfo("without a file");
  EXPECT_EQ(Err(), "\x1b[91mE: Failed to open log file: " + host_.LogFile().string() +
                       " Errno: 13\x1b[0m\n");
  EXPECT_EQ(Out(), "09:00:00 [INFO] before the file\n09:00:00 [INFO] without a file\n");
  EXPECT_FALSE(std::filesystem::exists(host_.LogFile()));
}

TEST_F(LogTest, AnUnknownTemporaryDirectoryIsTold) {
  host_.FailNext("system.TempPath", 203);
  log_.OpenLogFile();
  EXPECT_EQ(Err(), "\x1b[91mE: GetTempPathW failed: 203\x1b[0m\n");
}

// A path of that many characters.
std::string PathOfLength(std::size_t length) {
  std::string path = "C:/" + std::string(120, 'a') + '/';
  return path + std::string(length - path.size(), 'b');
}

TEST_F(LogTest, TheLongestTemporaryDirectoriesWork) {
  for (const std::string& path : {PathOfLength(258), PathOfLength(258) + '/'}) {
    host_.console.Forget();
    host_.system.temp_path = path;
    std::filesystem::create_directories(path);
    log_.OpenLogFile();
    EXPECT_EQ(Err(), "");
    EXPECT_TRUE(std::filesystem::exists(host_.LogFile()));
  }
  host_.system.temp_path = PathOfLength(259);
  log_.OpenLogFile();
  EXPECT_EQ(Err(), "\x1b[91mE: Temp path buffer too small to add trailing slash.\x1b[0m\n");
}

// A system whose own code throws.
class ThrowingSystem : public support::SimSystem {
 public:
  ThrowingSystem(support::ChokePoint& choke, std::function<void()> thrower)
      : SimSystem(choke), thrower_(std::move(thrower)) {}
  platform::Result<std::filesystem::path> TempPath() override {
    thrower_();
    return SimSystem::TempPath();
  }

 private:
  std::function<void()> thrower_;
};

TEST_F(LogTest, ExceptionsWhileOpeningAreTold) {
  const std::filesystem::filesystem_error in_files("busy", std::error_code());
  const struct {
    std::function<void()> thrower;
    std::string told;
  } rows[] = {
      {[&] { throw in_files; },
       std::string("Filesystem exception opening log: ") + in_files.what()},
      {[] { throw std::runtime_error("odd"); }, "Standard exception opening log: odd"},
      {[] { throw 1; }, "Unknown exception opening log file."},
  };
  for (const auto& row : rows) {
    host_.console.Forget();
    ThrowingSystem system(host_.choke, row.thrower);
    LogSink log(host_.console, host_.files, system, host_.clock, menu_visible_);
    log.OpenLogFile();
    EXPECT_EQ(Err(), "\x1b[91mE: " + row.told + "\x1b[0m\n");
  }
}

TEST(LogSweep, NoFailureOfTheSystemLosesALineOnBothSides) {
  support::SweepFaults([](SimulatedHost& host) {
    support::LogRecorder recorder(host);
    LogSink& log = recorder.Sink();
    log.EnableVirtualTerminal();
    log.SetConsoleOutputValid(host.console.HasStream(StandardStream::output));
    for (const char* text : {"first", "second"}) log.LogWarn(text);
    const std::string shown = host.console.TextOf(StandardStream::error);
    EXPECT_LT(shown.find("first"), shown.find("second"));
    EXPECT_NE(shown.find("second"), std::string::npos);
    if (shown.find("E: ") == std::string::npos) {
      EXPECT_THAT(recorder.Lines(), LogIs({"[WARN] first", "[WARN] second"}));
    }
  });
}

}  // namespace
}  // namespace vosk::console
