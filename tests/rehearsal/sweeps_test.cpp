// Checks the promises, whichever call of VOSK's fails, and wherever VOSK or the power ends.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "tools/rehearsal/sweep.h"

namespace vosk::rehearsal {
namespace {

const std::filesystem::path kLives = VOSK_TESTS_DIRECTORY "/../rehearsals";

// Returns what is known to be broken, a line each: "update killed Startable: no VOSK.exe is left
// ...".
std::set<std::string> KnownBreaks(const std::string& sweep) {
  std::set<std::string> known;
  std::ifstream file(kLives / "known-breaks.txt");
  EXPECT_TRUE(file.good());
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(sweep)) known.insert(line);
  }
  return known;
}

// Expects exactly the known ones: a break that is mended has to leave the list.
void ExpectKnownBreaks(const std::string& sweep, const std::string& file,
                       const SweepResult& result) {
  EXPECT_GT(result.runs, 0);
  auto known = KnownBreaks(sweep);
  for (const auto& [broken, runs, fault] : result.breaks) {
    const std::string line = sweep + broken.promise + ": " + broken.how;
    EXPECT_EQ(known.erase(line), 1u)
        << line << "\nin " << runs << " of " << result.runs
        << " runs; repeat the first: scripts/rehearse rehearsals/" << file << " --fault " << fault;
  }
  for (const std::string& line : known) ADD_FAILURE() << "no longer broken: " << line;
}

using LifeAndKind = std::tuple<std::string, std::string>;

class Sweeps : public testing::TestWithParam<LifeAndKind> {};

TEST_P(Sweeps, KeepThePromises) {
  const auto& [life, kind] = GetParam();
  const Script script = Script::FromFile(kLives / (life + ".life"));
  ExpectKnownBreaks(life + ' ' + kind + ' ', life + ".life", Sweep(script, kind));
}

INSTANTIATE_TEST_SUITE_P(
    All, Sweeps,
    testing::Combine(testing::Values("start", "crash", "update", "installation", "reinstall",
                                     "unsent", "menu"),
                     testing::ValuesIn(SweepKinds())),
    [](const auto& sweep) { return std::get<0>(sweep.param) + "_" + std::get<1>(sweep.param); });

TEST(Sweeps, KeepThePromisesWhereTwoCallsAreHit) {
  const Script script = Script::FromFile(kLives / "crash.life");
  ExpectKnownBreaks("crash pairs ", "crash.life", SweepPairs(script, 150, 20250301));
}

}  // namespace
}  // namespace vosk::rehearsal
