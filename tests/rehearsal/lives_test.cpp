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

// Quiet stretches pass in leaps, so the lines that come at a fixed pace are fewer than in real
// time.
TEST(Days, OfRefusalsAndCrashesStayQuiet) {
  struct Row {
    std::string day;
    std::uint64_t most_lines = 2'000;
    std::uint64_t most_requests = 300;
  };
  const Row rows[] = {
      {"Core is running\nCore refuses handles\n"},
      {"calls of processes.Start fail with 740\n"},
      {"Core is running\ncalls of processes.Start fail with 8\n"},
      {"monitor refuses\n"},
      {"C: 1 GiB free\n"},
      {"09:10 C: 1 GiB free\n"},
      {"version service down\ndownload server down\ncollection server down\n"},
      {"release 1.2.3 is installed\n"
       "09:10 release 1.2.4 published, its package cannot be unpacked\n"},
      {"release 1.2.3 is installed\n09:10 release 1.2.4 published, its Core crashes at once\n",
       20'000, 2'000}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.day);
    const Script script(row.day + "day 2 09:01 end\n");
    Life life;
    script.Apply(life);
    life.Run(script.Length());
    EXPECT_LT(life.witness.Counted().log_lines, row.most_lines);
    EXPECT_LT(life.servers.requests, row.most_requests);
    for (const auto& broken : life.witness.Broken()) ADD_FAILURE() << broken.promise << broken.how;
  }
}

TEST(Days, WithoutAServerEndWithEveryReportDelivered) {
  const std::pair<std::string, std::size_t> rows[] = {{"10:00 Core crashes\n"
                                                       "13:00 Core crashes\n"
                                                       "14:00 VOSK killed\n"
                                                       "15:00 Core crashes\n"
                                                       "16:00 power cut\n"
                                                       "18:00 operator chooses 4\n",
                                                       4},
                                                      // In the middle of the second attempt.
                                                      {"refusals take 30 s\n"
                                                       "10:00 Core crashes\n"
                                                       "11:02:00 VOSK killed\n",
                                                       1}};
  for (const auto& [day, reports] : rows) {
    SCOPED_TRACE(day);
    const Script script("collection server down for 1 d\n" + day + "day 3 12:00 end\n");
    Life life;
    script.Apply(life);
    life.Run(script.Length());
    EXPECT_EQ(life.servers.received.size(), reports);
    EXPECT_EQ(life.servers.received.size(), life.host.dumps.Written().size());
    for (const auto& broken : life.witness.Broken()) ADD_FAILURE() << broken.promise << broken.how;
  }
}

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
