#include "console/boot_animation.h"

#include <gmock/gmock.h>

#include <set>

#include "tests/support/console_scene.h"

namespace vosk::console {
namespace {

using namespace std::chrono_literals;
using support::ConsoleScene;
using support::Terminal;
using testing::HasSubstr;

void Play(ConsoleScene& scene) {
  PlayBootAnimation(scene.host.console, scene.host.clock, scene.log, scene.random);
}

TEST(BootAnimation, IsShortAndEndsWithEveryText) {
  ConsoleScene scene(80, 25);
  Play(scene);
  EXPECT_LT(scene.host.clock.Elapsed(), 2500ms);
  const std::string screen = support::ScreenText(scene.Shown());
  for (const std::string text :
       {"HUMOR SETTING: 75%", "TRUST SETTING: 95%",
        "VELDRAN Core - VOSK (Vigilant Oversight & Supervision Kit)", "Version: 3.3",
        "Initializing Systems", "Press [M] for Menu | [Q] to Quit"}) {
    EXPECT_THAT(screen, HasSubstr(text));
  }
  EXPECT_TRUE(scene.Shown().CursorVisible());
  EXPECT_EQ(screen.find('?'), std::string::npos) << "a glyph stayed, or an unknown colour";
}

TEST(BootAnimation, FitsWindowsOfAnySize) {
  std::mt19937 random(7);
  const auto phrases = ChooseBootPhrases(random);
  for (const int width : {1, 2, 20, 40, 64, 65, 66, 80, 120}) {
    for (int height = 1; height <= 30; ++height) {
      Terminal terminal(width, height);
      for (int frame = 0; frame < kBootFrames; ++frame) {
        terminal.Write(BuildBootFrame(frame, phrases, width, height, random));
        EXPECT_EQ(terminal.RowText(height), "") << width << " x " << height;
      }
      EXPECT_EQ(terminal.RowsScrolledOff(), 0) << width << " x " << height;
      if (width < 20 || height < 2) continue;
      EXPECT_THAT(support::ScreenText(terminal), HasSubstr("VELDRAN Core - VOSK"))
          << width << " x " << height;
    }
  }
}

TEST(BootAnimation, TheGeneratorAloneDecidesWhatIsRandom) {
  const auto run = [](std::uint32_t seed) {
    ConsoleScene scene(80, 25);
    scene.random.seed(seed);
    Play(scene);
    return scene.host.console.Text();
  };
  EXPECT_EQ(run(1), run(1));
  EXPECT_NE(run(1), run(2));
}

TEST(BootAnimation, EveryPhraseHasItsTurnAndNoneComesTwice) {
  std::mt19937 random(1);
  std::set<std::string_view> seen;
  for (int i = 0; i < 200; ++i) {
    const auto phrases = ChooseBootPhrases(random);
    EXPECT_EQ(std::set(phrases.begin(), phrases.end()).size(), phrases.size());
    seen.insert(phrases.begin(), phrases.end());
  }
  EXPECT_EQ(seen.size(), 12u);
}

TEST(BootAnimation, TakesNoTimeWhereItCannotBeSeen) {
  ConsoleScene scene(80, 25);
  scene.log.SetConsoleOutputValid(false);
  EXPECT_TRUE(scene.WritesOf([&] { Play(scene); }).empty());
  EXPECT_EQ(scene.host.clock.Elapsed(), 0ms);
}

TEST(BootAnimation, GoesOnInAWindowThatChangesItsSize) {
  ConsoleScene scene(80, 25);
  scene.host.At(600ms, [&](support::SimulatedHost&) { scene.Resize(100, 20); });
  scene.host.At(1200ms, [&](support::SimulatedHost&) { scene.Resize(40, 8); });
  Play(scene);
  // It ends as in a window that had this size all along.
  ConsoleScene unchanged(40, 8);
  Play(unchanged);
  for (int row = 1; row <= 8; ++row) {
    EXPECT_EQ(scene.Shown().RowText(row), unchanged.Shown().RowText(row));
  }
}

}  // namespace
}  // namespace vosk::console
