#include "tests/support/stored_text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace vosk::support {

void ExpectStoredText(const std::filesystem::path& file, const std::string& text) {
  // Absolute, since simulated hosts change the current directory.
  const std::filesystem::path path = std::filesystem::path(VOSK_TESTS_DIRECTORY) / file;
  if (const char* renew = std::getenv("VOSK_RENEW"); renew != nullptr && *renew == '1') {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return;
  }
  std::ostringstream stored;
  stored << std::ifstream(path, std::ios::binary).rdbuf();
  EXPECT_EQ(stored.str(), text) << "stored in " << path
                                << "; if the change is meant, run again with VOSK_RENEW=1";
}

}  // namespace vosk::support
