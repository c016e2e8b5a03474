#include "console/log.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/checked_host.h"

namespace vosk::console {
namespace {

class LogTest : public testing::Test {
 protected:
  std::string Told() { return host_.console.TextOf(platform::StandardStream::error); }

  support::CheckedHost host_;
  bool menu_visible_ = false;
  LogSink log_{host_.console, host_.files, host_.system, host_.clock, menu_visible_};
};

TEST_F(LogTest, AFullDiskSilencesTheFileOnlyForAWhile) {
  log_.LogInfo("before the file");
  log_.OpenLogFile();
  log_.LogInfo("before");
  host_.files.disk_full = true;
  log_.LogInfo("lost");
  log_.LogProgress("lost as well");
  host_.files.disk_full = false;
  log_.LogProgress("after");
  // The next session opens with its header.
  log_.OpenLogFile();
  EXPECT_EQ(host_.ReadFile(host_.LogFile()),
            "\n--- Log Session Start ---\n2025-03-01 09:00:00 [INFO] before\n"
            "2025-03-01 09:00:00 [PROG] after\n\n--- Log Session Start ---\n");
}

// Returns a path of that many characters.
std::string PathOfLength(std::size_t length) {
  std::string path = "C:/" + std::string(120, 'a') + '/';
  return path + std::string(length - path.size(), 'b');
}

TEST_F(LogTest, TheLongestTemporaryDirectoriesWork) {
  for (const std::string& path : {PathOfLength(258), PathOfLength(258) + '/'}) {
    host_.system.temp_path = path;
    std::filesystem::create_directories(path);
    log_.OpenLogFile();
    EXPECT_EQ(Told(), "");
    EXPECT_TRUE(std::filesystem::exists(host_.LogFile()));
  }
  host_.system.temp_path = PathOfLength(259);
  log_.OpenLogFile();
  EXPECT_EQ(Told(), "\x1b[91mE: Temp path buffer too small to add trailing slash.\x1b[0m\n");
}

// A system whose own code throws.
struct ThrowingSystem : support::SimSystem {
  using SimSystem::SimSystem;
  std::function<void()> thrower;
  platform::Result<std::filesystem::path> TempPath() override {
    thrower();
    return SimSystem::TempPath();
  }
};

TEST_F(LogTest, ExceptionsWhileOpeningAreTold) {
  const std::filesystem::filesystem_error in_files("busy", std::error_code());
  const std::pair<std::function<void()>, std::string> rows[] = {
      {[&] { throw in_files; },
       std::string("Filesystem exception opening log: ") + in_files.what()},
      {[] { throw std::runtime_error("odd"); }, "Standard exception opening log: odd"},
      {[] { throw 1; }, "Unknown exception opening log file."}};
  for (const auto& [thrower, told] : rows) {
    host_.console.Forget();
    ThrowingSystem system(host_.choke);
    system.thrower = thrower;
    LogSink(host_.console, host_.files, system, host_.clock, menu_visible_).OpenLogFile();
    EXPECT_EQ(Told(), "\x1b[91mE: " + told + "\x1b[0m\n");
  }
}

}  // namespace
}  // namespace vosk::console
