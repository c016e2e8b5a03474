#include "tests/contract/host_under_test.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "text/utf.h"

namespace vosk::contract {

namespace fs = std::filesystem;

Contract::Contract() {
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  scratch_ = *host_.system.TempPath() / fmt::format("vosk-{}", test->name());
  std::error_code ignored;
  fs::remove_all(scratch_, ignored);
  fs::create_directories(scratch_);
}

Contract::~Contract() {
  // The file of a child that has just ended may stay in use for a moment.
  std::error_code error;
  for (int attempt = 0; attempt < 20; ++attempt) {
    fs::remove_all(scratch_, error);
    if (!error) return;
    host_.clock.SleepFor(std::chrono::milliseconds(50));
  }
  ADD_FAILURE() << "something is left in " << text::PathToUtf8(scratch_) << ": " << error.message();
}

std::string Contract::ChildCommand(std::uint32_t exit_code, std::chrono::milliseconds life) const {
  return fmt::format("\"{}\" --child {} {}", text::PathToUtf8(*host_.system.ModulePath()),
                     exit_code, life.count());
}

platform::StartedProcess Contract::StartChild(std::uint32_t exit_code,
                                              std::chrono::milliseconds life) {
  auto started = host_.processes.Start({.command_line = ChildCommand(exit_code, life)});
  EXPECT_TRUE(started) << CodeOf(started);
  return started ? std::move(*started) : platform::StartedProcess{};
}

void PutBytes(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string BytesOf(const fs::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

std::string PlainLines(std::string text) {
  std::erase(text, '\r');
  return text;
}

}  // namespace vosk::contract
