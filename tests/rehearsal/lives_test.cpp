// Compares VOSK.log and the end of every life in rehearsals/ with the stored ones.
#include <gtest/gtest.h>

#include <regex>

#include "tests/support/stored_text.h"
#include "tools/rehearsal/script.h"

namespace vosk::rehearsal {
namespace {

const std::filesystem::path kLives = VOSK_TESTS_DIRECTORY "/../rehearsals";

std::vector<std::string> NamesOfLives() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kLives)) {
    if (entry.path().extension() == ".life") names.push_back(entry.path().stem().string());
  }
  return names;
}

// Removes the colours and the year.
std::string Plain(std::string_view line) {
  static const std::regex kColour("\x1b\\[[0-9;]*m");
  static const std::regex kYear("^2025-");
  return std::regex_replace(std::regex_replace(std::string(line), kColour, ""), kYear, "");
}

class Lives : public testing::TestWithParam<std::string> {};

TEST_P(Lives, AreToldAsStored) {
  const Script script = Script::FromFile(kLives / (GetParam() + ".life"));
  Life life;
  script.Apply(life);
  std::string told;
  life.witness.on_line = [&told](std::string_view line) { told += Plain(line) + '\n'; };
  life.Run(script.Length());
  told += "\n--- how it ended ---\n" + life.EndState();
  support::ExpectStoredText("rehearsal/lives/" + GetParam() + ".txt", told);
}

INSTANTIATE_TEST_SUITE_P(All, Lives, testing::ValuesIn(NamesOfLives()),
                         [](const auto& life) { return life.param; });

TEST(Scripts, SayWhichLineCannotBeRehearsed) {
  const std::pair<std::string, std::string> rows[] = {
      {"09:01 Core sings\n09:02 end\n", "'Core sings' says nothing that can be rehearsed"},
      {"09:02 Core crashes\n09:01 end\n", "'09:01 end' is before what stands above"},
      {"09:02 Core crashes\n", "the life has no end"}};
  for (const auto& [text, problem] : rows) {
    try {
      const Script script(text);
      ADD_FAILURE() << text;
    } catch (const ScriptError& error) {
      EXPECT_EQ(error.what(), problem);
    }
  }
}

}  // namespace
}  // namespace vosk::rehearsal
