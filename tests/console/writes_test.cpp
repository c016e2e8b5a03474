// Compares what goes to the console, write by write, with tests/console/writes*.txt. A screen shows
// neither which stream a line went to nor what was written in vain.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "console/boot_animation.h"
#include "tests/support/console_scene.h"
#include "tests/support/stored_text.h"
#include "tests/support/transcript.h"

namespace vosk::console {
namespace {

using namespace std::chrono_literals;
using platform::StandardStream;
using support::ConsoleScene;
using support::SimulatedHost;
using support::StreamTarget;

// Returns one line for each write since the last call, with the middle of a long one left out.
std::string NewWrites(SimulatedHost& host) {
  std::string lines;
  for (const auto& [stream, text] : host.console.Written()) {
    std::string bytes;
    for (const char c : text) {
      bytes += c == '\x1b' ? "\\e"
               : c == '\n' ? "\\n"
               : c < 0     ? fmt::format("\\x{:02x}", static_cast<unsigned char>(c))
                           : std::string(1, c);
    }
    if (bytes.size() > 120) bytes.replace(45, bytes.size() - 60, " ... ");
    lines += fmt::format("  {} {}\n", stream == StandardStream::output ? "out" : "err", bytes);
  }
  host.console.Forget();
  return lines;
}

class Writes : public testing::Test {
 protected:
  void TearDown() override { support::ExpectStoredText("console/" + file_, text_); }

  void Step(const std::string& what, const std::function<void()>& action) {
    action();
    const std::string lines = NewWrites(scene_.host);
    text_ += what + '\n' + (lines.empty() ? "  nothing\n" : lines);
  }
  std::string file_;
  std::string text_;
  ConsoleScene scene_{80, 25};
  LogSink& log_ = scene_.log;
};

TEST_F(Writes, OfTheLog) {
  file_ = "writes_of_log.txt";
  for (const char* level : {"INFO", "WARN", "ERROR", "Info", "warn"}) {
    Step(level, [&] { log_.LogMessage(level, "text"); });
  }
  Step("UTF-16", [&] {
    log_.LogInfo(u"Gr\u00FC\u00DFe");
    log_.LogWarn(std::u16string(1, u'\xD800'));
    log_.LogError(u"");
  });
  Step("progress", [&] { log_.LogProgress("Uploading 40%"); });
  Step("under the menu", [&] {
    scene_.recorder.menu_visible = true;
    log_.LogError("hidden");
    log_.LogProgress("Uploading 60%");
  });
  scene_.recorder.menu_visible = false;
  Step("no handle to position a cursor on", [&] {
    log_.SetConsoleOutputValid(false);
    log_.LogInfo("text");
    scene_.LayOut();
    scene_.OpenMenu(1);
    scene_.CloseMenu();
    PlayBootAnimation(scene_.host.console, scene_.host.clock, log_, scene_.random);
  });
  EXPECT_EQ(scene_.host.clock.Elapsed(), 0s) << "an animation that nobody sees";
}

TEST_F(Writes, FollowTheWindow) {
  file_ = "writes_in_windows.txt";
  platform::ConsoleInfo& window = scene_.host.console.info;
  Step("start", [&] { scene_.Start(); });
  const std::tuple<const char*, int, int> moves[] = {{"nothing changed", 0, 24},
                                                     {"scrolled over the buffer", 100, 124},
                                                     {"grown downwards", 100, 129},
                                                     {"grown both ways", 98, 131},
                                                     {"grown upwards", 95, 131},
                                                     {"grown elsewhere", 300, 340},
                                                     {"shrunk", 300, 310},
                                                     {"one row", 300, 300},
                                                     {"one row in another place", 310, 310},
                                                     {"no rows", 310, 309},
                                                     {"two rows", 310, 311}};
  for (const auto& [what, top, bottom] : moves) {
    window.top = top;
    window.bottom = bottom;
    Step(what, [&] { scene_.Cycle(); });
  }
  window.right = -1;
  Step("no columns", [&] {
    scene_.Cycle();
    log_.LogInfo("goes on");
    scene_.OpenMenu(1);
    scene_.CloseMenu();
  });
  window.right = 69;
  Step("seventy columns", [&] { scene_.Cycle(); });
  Step("end", [&] { scene_.screen.Release(); });
}

TEST_F(Writes, FollowTheStandardStreams) {
  file_ = "writes_to_streams.txt";
  const std::pair<StreamTarget, std::string> targets[] = {{StreamTarget::console, "console"},
                                                          {StreamTarget::redirected, "redirected"},
                                                          {StreamTarget::missing, "missing"}};
  const auto start_up = [&] {
    log_.EnableVirtualTerminal();
    log_.SetConsoleOutputValid(scene_.host.console.HasStream(StandardStream::output));
    scene_.LayOut();
    log_.LogInfo("to output");
    log_.LogWarn("to error");
    log_.LogProgress("progress");
    scene_.OpenMenu(1);
    scene_.CloseMenu();
  };
  for (const auto& [output, output_name] : targets) {
    for (const auto& [error, error_name] : targets) {
      scene_.host.console.Redirect(StandardStream::output, output);
      scene_.host.console.Redirect(StandardStream::error, error);
      Step(fmt::format("output {}, error {}", output_name, error_name), start_up);
    }
  }
  scene_.host.console.Close();
  scene_.host.console.Redirect(StandardStream::output, StreamTarget::console);
  scene_.host.console.Redirect(StandardStream::error, StreamTarget::console);
  scene_.host.console.understands_escapes = false;
  Step("a console that takes no escape sequences", start_up);
}

TEST(WritesUnderFaults, LoseNoLineOnBothSides) {
  const auto act = [](SimulatedHost& host, LogSink&) {
    const bool menu_visible = false;
    LogSink log(host.console, host.files, host.system, host.clock, menu_visible);
    Screen screen(host.console, log);
    log.EnableVirtualTerminal();
    log.SetConsoleOutputValid(host.console.HasStream(StandardStream::output));
    log.OpenLogFile();
    screen.SetupScrollRegion();
    log.LogWarn("first");
    host.console.info.bottom -= 5;
    const bool once = screen.FollowWindowSize();
    const bool twice = screen.FollowWindowSize();
    log.LogWarn("second");
    screen.Release();
    return fmt::format("laid out again {}, then {}, modes {} and {}, colours {}\n{}", once, twice,
                       host.console.ModeOf(StandardStream::output),
                       host.console.ModeOf(StandardStream::error),
                       log.EnableVirtualTerminal() ? "on" : "off", NewWrites(host));
  };
  support::ExpectFaultTranscript("console/writes_under_faults.txt", {.act = act});
}

}  // namespace
}  // namespace vosk::console
