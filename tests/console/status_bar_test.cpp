#include "console/status_bar.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "console/display_text.h"
#include "tests/support/console_scene.h"

namespace vosk::console {
namespace {

using namespace std::chrono_literals;
using support::ConsoleScene;
using support::Terminal;
using testing::HasSubstr;
using testing::Not;

StatusSnapshot RunningCore() {
  return {.core_pid = 4711, .core_version = "1.2.3a", .crash_count = 1, .uptime = 3723s};
}

TransferProgress NoTransfer() {
  return {};
}

// The row alone, as a terminal of that width shows it.
std::string Shown(const StatusSnapshot& status, const TransferProgress& progress, int width) {
  Terminal terminal(width, 1);
  terminal.Write(BuildStatusRow(status, progress, width));
  return terminal.RowText(1);
}

std::vector<std::size_t> PlacesOf(char c, const std::string& text) {
  std::vector<std::size_t> places;
  for (std::size_t at = text.find(c); at != std::string::npos; at = text.find(c, at + 1)) {
    places.push_back(at);
  }
  return places;
}

TEST(StatusBar, ShowsWhatIsMissing) {
  const std::string row = Shown({.core_version = "0.0.0"}, NoTransfer(), 80);
  EXPECT_THAT(row, HasSubstr("Core: ?"));
  EXPECT_THAT(row, HasSubstr("Uptime: --"));
}

TEST(StatusBar, ShowsThePercentageInThreePlaces) {
  struct {
    double percentage;
    std::string text;
  } const rows[] = {{0.0, "[Uploading     0%]"},
                    {7.4, "[Uploading     7%]"},
                    {42.5, "[Uploading    42%]"},
                    {99.4, "[Uploading    99%]"},
                    {99.9, "[Uploading   100%]"}};
  for (const auto& row : rows) {
    TransferProgress progress;
    progress.Begin("Uploading");
    progress.Set(row.percentage);
    EXPECT_THAT(Shown(RunningCore(), progress, 120), HasSubstr(row.text));
    progress.Reset();
    EXPECT_THAT(Shown(RunningCore(), progress, 120), Not(HasSubstr("[")));
  }
}

TEST(StatusBar, ColumnsStayWhileNumbersGrow) {
  for (const int width : {40, 60, 80, 100, 120, 200}) {
    for (const bool transfers : {false, true}) {
      TransferProgress progress;
      if (transfers) progress.Begin("Zipping");
      const auto separators = PlacesOf('|', Shown(RunningCore(), progress, width));
      const auto expect_same = [&](const StatusSnapshot& status, double percentage,
                                   std::string_view label) {
        if (transfers) progress.SetLabel(label);
        if (transfers) progress.Set(percentage);
        const std::string row = Shown(status, progress, width);
        EXPECT_EQ(PlacesOf('|', row), separators) << width << '\n' << row;
      };
      for (const platform::ProcessId pid : {0u, 4u, 4711u, 65'432u, 999'996u}) {
        expect_same({.core_pid = pid, .core_version = "0.0.0"}, 5.0, "Zipping");
      }
      for (const std::int64_t crashes : {0, 9, 10, 100, 9'999}) {
        expect_same({.crash_count = crashes}, 50.0, "Uploading");
      }
      for (const auto uptime : {0s, 59s, 60s, 3'600s, 36'000s, 46'799s}) {
        expect_same({.core_version = "12.34.5b", .uptime = uptime}, 99.9, "Downloading");
      }
    }
  }
}

// Which segments a row shows.
std::vector<bool> SegmentsIn(const std::string& row) {
  std::vector<bool> shown;
  for (const std::string text :
       {"Core:", "RED ALERT", "[Zipping", "Uptime:", "Crashes:", "VOSK", "v1.2.3a", "NORMAL"}) {
    shown.push_back(row.find(text) != std::string::npos);
  }
  return shown;
}

TEST(StatusBar, FitsEveryWidthAndShowsNoLessInAWiderWindow) {
  for (const bool red_alert : {false, true}) {
    for (const bool transfers : {false, true}) {
      StatusSnapshot status = RunningCore();
      status.red_alert = red_alert;
      TransferProgress progress;
      if (transfers) progress.Begin("Zipping");
      std::vector<bool> narrower(8, false);
      for (int width = 1; width <= 140; ++width) {
        const std::string row = Shown(status, progress, width);
        // Not even the last column is written to: some terminals wrap at once.
        const std::string written = PlainText(BuildStatusRow(status, progress, width));
        EXPECT_LT(DisplayWidth(written), width) << written;
        const auto shown = SegmentsIn(row);
        for (std::size_t i = 0; i < shown.size(); ++i) {
          EXPECT_GE(shown[i], narrower[i]) << width << ": " << row;
        }
        narrower = shown;
        if (width < 40) continue;
        EXPECT_TRUE(shown[0]) << width;
        // Nothing but whole segments from 40 columns on: the row ends as one of them does.
        EXPECT_EQ(PlacesOf('[', row).size(), PlacesOf(']', row).size()) << row;
        if (red_alert) {
          EXPECT_THAT(row, HasSubstr(" *** RED ALERT ***")) << width;
        }
      }
      EXPECT_EQ(narrower[1], red_alert);
      EXPECT_EQ(narrower[2], transfers);
      for (const std::size_t always : {0, 3, 4, 5, 6}) EXPECT_TRUE(narrower[always]);
    }
  }
}

TEST(StatusBar, EvenAbsurdValuesStayInTheRow) {
  const StatusSnapshot status{.core_pid = 4'294'967'295u,
                              .core_version = "1.2.3a\x1b[2J\nand a long tail of text behind it",
                              .crash_count = std::numeric_limits<std::int64_t>::max(),
                              .uptime = 24h * 99'999,
                              .red_alert = true};
  TransferProgress progress;
  progress.Begin("A label that is far too long for its field");
  for (int width = 1; width <= 250; ++width) {
    Terminal terminal(width, 3);
    terminal.Write("\x1b[2;1H");
    terminal.Write(BuildStatusRow(status, progress, width));
    EXPECT_EQ(terminal.CursorRow(), 2) << width;
    EXPECT_EQ(terminal.RowText(3), "") << width;
    EXPECT_TRUE(terminal.RowBackground(2).ends_with(fmt::format(" to {}", width))) << width;
  }
}

TEST(StatusBar, CrashesTurnTheCountYellow) {
  for (const auto& [crashes, ink] : {std::pair{0, 'g'}, std::pair{1, 'y'}}) {
    Terminal terminal(80, 1);
    StatusSnapshot status = RunningCore();
    status.crash_count = crashes;
    terminal.Write(BuildStatusRow(status, NoTransfer(), 80));
    const std::size_t at = terminal.RowText(1).find("Crashes: ") + 9;
    EXPECT_EQ(terminal.RowInk(1)[at], ink);
  }
}

TEST(StatusBar, DrawsWithOneWriteAndReturnsTheCursor) {
  ConsoleScene scene(80, 25);
  scene.LayOut();
  scene.log.LogInfo("a line");
  Terminal& terminal = scene.Shown();
  const int row = terminal.CursorRow();
  const int column = terminal.CursorColumn();
  const std::string above = terminal.RowText(23);
  const auto writes = scene.WritesOf([&] { scene.bar.DrawStatusBar(); });
  ASSERT_EQ(writes.size(), 1u);
  EXPECT_TRUE(writes[0].starts_with("\x1b[?25l"));
  EXPECT_TRUE(writes[0].ends_with("\x1b[?25h"));
  scene.Shown();
  EXPECT_EQ(terminal.CursorRow(), row);
  EXPECT_EQ(terminal.CursorColumn(), column);
  EXPECT_EQ(terminal.RowText(23), above);
}

TEST(StatusBar, WipesTheOldBarWhereAGrownWindowStillShowsIt) {
  const auto first_write_after = [](int top, int bottom) {
    ConsoleScene scene(80, 25);
    scene.host.console.info.top = 100;
    scene.host.console.info.bottom = 124;
    scene.bar.DrawStatusBar();
    scene.host.console.info.top = top;
    scene.host.console.info.bottom = bottom;
    return scene.WritesOf([&] { scene.bar.DrawStatusBar(); }).at(0);
  };
  const std::string wipe = "\x1b[25;1H\x1b[2K";
  EXPECT_THAT(first_write_after(100, 129), HasSubstr(wipe));
  EXPECT_THAT(first_write_after(98, 129), HasSubstr("\x1b[27;1H\x1b[2K"));
  // The window has grown upwards, or has left the old place altogether.
  EXPECT_THAT(first_write_after(95, 124), Not(HasSubstr(wipe)));
  EXPECT_THAT(first_write_after(300, 330), Not(HasSubstr(wipe)));
  // It only scrolled over the buffer.
  EXPECT_THAT(first_write_after(110, 134), testing::StartsWith("\x1b[?25l\x1b"
                                                               "7\x1b[25;1H\x1b[2K"));
}

TEST(StatusBar, DrawsNothingWhereItCannot) {
  const auto expect_silence = [](const char* why,
                                 const std::function<void(ConsoleScene&)>& change) {
    ConsoleScene scene(80, 25);
    change(scene);
    EXPECT_TRUE(scene.WritesOf([&] { scene.bar.DrawStatusBar(); }).empty()) << why;
  };
  expect_silence("no handle", [](ConsoleScene& s) { s.log.SetConsoleOutputValid(false); });
  expect_silence("no colour", [](ConsoleScene& s) {
    s.host.console.understands_escapes = false;
    s.host.console.Redirect(platform::StandardStream::error, support::StreamTarget::redirected);
    s.host.console.Redirect(platform::StandardStream::output, support::StreamTarget::redirected);
    s.log.EnableVirtualTerminal();
  });
  // Standard error is still a console, so the colour flag stays set.
  expect_silence("redirected", [](ConsoleScene& s) {
    s.host.console.Redirect(platform::StandardStream::output, support::StreamTarget::redirected);
    s.log.EnableVirtualTerminal();
    EXPECT_TRUE(s.log.ColourEnabled());
  });
  expect_silence("no rows", [](ConsoleScene& s) { s.host.console.info.bottom = -1; });
  expect_silence("no columns", [](ConsoleScene& s) { s.host.console.info.right = -1; });
}

}  // namespace
}  // namespace vosk::console
