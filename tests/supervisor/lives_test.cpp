// Checks what a life's log does not show: VOSK's answer to a question, its end, and its screen.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "simulation/servers.h"
#include "supervisor/supervisor.h"
#include "tests/support/checked_host.h"
#include "tests/support/stored_text.h"
#include "tests/support/terminal.h"

namespace vosk::supervisor {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::SimServers;
using support::SimulatedHost;
using testing::HasSubstr;

constexpr char16_t kCoreName[] = u"VELDRAN Core.exe";
constexpr char16_t kSelfName[] = u"VOSK.exe";
const std::filesystem::path kLogRoot = "C:/Users/op/AppData/Roaming/VELDRAN/stats/TestNet";

int Live(SimulatedHost& host, std::chrono::seconds quit_at,
         const std::vector<std::string>& arguments = {}, support::Duration transfer_time = 0s) {
  host.At(quit_at, [](SimulatedHost& at) { at.KeyPressed('q'); });
  SimServers network(host);
  network.transfer_time = transfer_time;
  const int status = Supervisor(host.Bundle(), network).Run(arguments);
  EXPECT_EQ(network.open_initialisations, 0);
  return status;
}

TEST(Supervisor, EndsWithALineAndAStatusWhateverIsThrown) {
  struct Broken : SimServers {
    using SimServers::SimServers;
    tl::expected<void, std::string> Initialize() override { throw std::bad_alloc(); }
  };
  CheckedHost host;
  Broken network(host);
  EXPECT_EQ(Supervisor(host.Bundle(), network).Run({}), 1);
  EXPECT_THAT(SimulatedHost::ReadFile(host.LogFile()), HasSubstr("unexpected exception: "));
}

TEST(Supervisor, AnswersTheVersionQueryAndDoesNothingElse) {
  const std::string unknown = "Not installed or version file not found";
  const std::vector<std::string> rows[] = {{"-version", "1.2.3\r\n", "1.2.3"},
                                           {"--version", "  \t1.3.0  \nsecond line\n", "1.3.0"},
                                           {"-v", "0.0.0", unknown},
                                           {"-v", "   \n", unknown},
                                           {"-v", "", unknown}};
  for (const auto& row : rows) {
    CheckedHost host;
    host.processes.Add(kSelfName);
    if (!row[1].empty()) host.PutFile(kLogRoot / "CoreVersion.txt", row[1]);
    EXPECT_EQ(Live(host, 1h, {row[0], "more"}), 0);
    EXPECT_EQ(host.console.Text(),
              "VOSK (Vigilant Oversight & Supervision Kit) v3.3\nVELDRAN Core: " + row[2] + "\n");
    EXPECT_FALSE(std::filesystem::exists(host.LogFile()));
    EXPECT_EQ(host.processes.Running(kSelfName).size(), 2u) << "the other one was left alone";
  }
}

TEST(Supervisor, EndsTheOlderOneOrGivesWay) {
  for (const bool can_be_ended : {true, false}) {
    CheckedHost host;
    host.Furnish();
    auto& older = host.processes.Add(u"vosk.EXE");
    if (!can_be_ended) older.on_terminate = support::OnTerminate::access_denied;
    older.survives_taskkill = !can_be_ended;
    EXPECT_EQ(Live(host, 10s), can_be_ended ? 0 : 1);
    EXPECT_EQ(older.running, !can_be_ended);
    EXPECT_EQ(std::filesystem::exists(host.LogFile()), can_be_ended);
    EXPECT_EQ(host.console.Text().find("[WARN] Could not terminate all other VOSK instances. There "
                                       "might be conflicts.") == std::string::npos,
              can_be_ended);
  }
}

TEST(Supervisor, TellsWhereThereIsNoConsole) {
  CheckedHost host;
  host.Furnish();
  host.console.Redirect(platform::StandardStream::output, support::StreamTarget::missing);
  EXPECT_EQ(Live(host, 10s), 0);
  EXPECT_THAT(host.console.TextOf(platform::StandardStream::error),
              HasSubstr("Failed to get console handle for TUI. TUI features disabled."));
}

TEST(Supervisor, LeavesTheReasonOfAFatalEndOnTheScreen) {
  CheckedHost host;
  SimServers network(host);
  network.initialize_error = "no memory";
  EXPECT_EQ(Supervisor(host.Bundle(), network).Run({}), 1);
  support::Terminal terminal(host.console.info.Width(), host.console.info.Height());
  terminal.Write(host.console.Text());
  EXPECT_THAT(terminal.RowText(terminal.CursorRow() - 1), HasSubstr("failed: no memory"));
  EXPECT_EQ(terminal.RowText(terminal.Rows()), "") << "no status bar";
}

TEST(Supervisor, PutsTheModulesOfTheCoreIntoAReport) {
  CheckedHost host;
  host.Furnish();
  host.InstallCore("C:/Program Files/VELDRAN Inc/VELDRAN Core/VELDRAN Core.exe",
                   [](auto& core) { core.modules = {{"C:/Windows/System32/ucrtbase.dll"}}; });
  host.At(20s, [](SimulatedHost& at) {
    at.CoreExits(0xC0000005);
    at.FailNext("network.Upload", 6);  // so that the file stays
  });
  Live(host, 30s);
  EXPECT_THAT(
      SimulatedHost::ReadFile(host.DumpDirectory() / "VELDRAN Core.exe_250301_090021_hostInfo.txt"),
      HasSubstr("ucrtbase.dll"));
}

// Shows the menu, the log and the status bar, in a window that becomes lower.
TEST(Supervisor, ShowsWhatTheOperatorDoes) {
  CheckedHost host;
  host.Furnish();
  host.processes.Add(kCoreName);
  support::Terminal terminal(host.console.info.Width(), host.console.info.Height());
  std::string shown;
  const auto show_at = [&](support::Duration time) {
    host.At(time, [&, time](SimulatedHost& at) {
      terminal.Write(at.console.Text());
      at.console.Forget();
      shown += "--- " + std::to_string(time / 1s) + " s\n" + support::ScreenText(terminal);
    });
  };
  const auto press_at = [&](support::Duration time, std::deque<int> keys) {
    host.At(time, [keys](SimulatedHost& at) { at.console.keys = keys; });
  };
  show_at(19s);
  press_at(20s, {'m', 224, 80});
  show_at(23s);  // before the line of the running Core comes,
  show_at(36s);  // and with it
  press_at(37s, {'m'});
  show_at(50s);
  host.At(51s, [](SimulatedHost& at) {
    at.console.info.bottom = at.console.info.top + 9;
    EXPECT_EQ(at.console.code_page, platform::kUtf8CodePage);
    EXPECT_EQ(at.console.ModeOf(platform::StandardStream::input), 0x1A7u) << "no mouse";
  });
  EXPECT_EQ(Live(host, 53s), 0);
  support::ExpectStoredText("supervisor/screens.txt", shown);
  EXPECT_THAT(host.console.Text(), HasSubstr("\x1b[1;9r\x1b[9;1H")) << "the lower window";
  EXPECT_THAT(host.console.Text(), HasSubstr("\x1b[r\x1b[2J\x1b[H")) << "given back in the end";
}

// The window grows while the report of a dead Core is made, and the loop does not look.
TEST(Supervisor, ShowsALongReportInAWindowThatGrows) {
  CheckedHost host;
  host.Furnish();
  host.processes.Add(kCoreName);
  support::Terminal terminal(host.console.info.Width(), host.console.info.Height());
  host.At(40s, [](SimulatedHost& at) { at.CoreExits(0xC0000005); });
  host.At(41s, [&](SimulatedHost& at) {
    terminal.Write(at.console.Text());
    at.console.Forget();
    terminal.Resize(at.console.info.Width(), at.console.info.Height() + 10);
    at.console.info.bottom += 10;
  });
  host.At(48s, [&](SimulatedHost& at) {
    terminal.Write(at.console.Text());
    EXPECT_THAT(terminal.RowText(terminal.Rows()), HasSubstr("Crashes: 1      | Uptime: --"));
    EXPECT_THAT(support::ScreenText(terminal), HasSubstr("Scanning dump storage")) << "scrolled";
  });
  EXPECT_EQ(Live(host, 70s, {}, 10s), 0);
}

}  // namespace
}  // namespace vosk::supervisor
