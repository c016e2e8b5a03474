// Clock, console, dump writer and the known places of the system.
#include "platform/system.h"

#include <atomic>

#include "tests/contract/host_under_test.h"

namespace vosk::contract {
namespace {

using namespace std::chrono_literals;
namespace access = platform::access;
namespace fs = std::filesystem;
using platform::StandardStream;

class SystemContract : public Contract {};

TEST_F(SystemContract, ASleepTakesItsTime) {
  const auto steady = host_.clock.SteadyNow();
  const auto wall = host_.clock.WallNow();
  EXPECT_NE(steady.time_since_epoch().count(), 0);
  host_.clock.SleepFor(30ms);
  EXPECT_GE(host_.clock.SteadyNow() - steady, 29ms);
  EXPECT_GE(host_.clock.WallNow(), wall);
}

TEST_F(SystemContract, LocalTimeIsWithinADayOfUtc) {
  const auto wall = host_.clock.WallNow();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(wall);
  std::tm local = host_.clock.ToLocal(wall);
  const std::chrono::sys_days day =
      std::chrono::year(local.tm_year + 1900) / (local.tm_mon + 1) / local.tm_mday;
  const auto as_if_utc = day + std::chrono::hours(local.tm_hour) +
                         std::chrono::minutes(local.tm_min) + std::chrono::seconds(local.tm_sec);
  const auto offset = std::chrono::system_clock::to_time_t(as_if_utc) - seconds;
  EXPECT_LE(std::abs(offset), 14 * 3600);
  EXPECT_EQ(offset % 900, 0) << "zones lie whole quarters of an hour apart";
}

TEST_F(SystemContract, KnownPlacesExist) {
  ASSERT_TRUE(host_.system.TempPath());
  EXPECT_TRUE(fs::is_directory(*host_.system.TempPath()));
  EXPECT_TRUE(host_.system.TempPath()->filename().empty()) << "it ends with a separator";
  ASSERT_TRUE(host_.system.ModulePath());
  EXPECT_TRUE(fs::is_regular_file(*host_.system.ModulePath()));
  ASSERT_TRUE(host_.system.RoamingAppDataPath());
  EXPECT_TRUE(fs::is_directory(*host_.system.RoamingAppDataPath()));
  ASSERT_TRUE(host_.system.ComputerName());
  EXPECT_FALSE(host_.system.ComputerName()->empty());
}

TEST_F(SystemContract, ComSaysThatItWasThere) {
  EXPECT_TRUE(host_.system.InitializeCom());
  EXPECT_TRUE(host_.system.InitializeCom()) << "it is there already";
  host_.system.UninitializeCom();
  host_.system.UninitializeCom();
}

TEST_F(SystemContract, AnInterruptIsAnsweredByTheHandler) {
  std::atomic<int> interrupts = 0;
  ASSERT_TRUE(host_.system.SetControlHandler([&](platform::ControlEvent event) {
    interrupts += event == platform::ControlEvent::interrupt ? 1 : 100;
    return true;
  }));
  side_->PressControlC();
  for (int wait = 0; wait < 100 && interrupts == 0; ++wait) host_.clock.SleepFor(50ms);
  host_.system.RemoveControlHandler();
  EXPECT_EQ(interrupts, 1);
}

const std::string kText = "Gr\u00FC\u00DFe\nzwei\n";

TEST_F(SystemContract, AConsoleCanBeSetUpAndShowsTheText) {
  platform::Console& console = host_.console;
  const std::string shown = side_->WithOutputTo(Output::screen, [&] {
    const std::uint32_t code_page = console.OutputCodePage().value_or(0);
    for (const std::uint32_t wanted : {platform::kUtf8CodePage, code_page}) {
      EXPECT_TRUE(console.SetOutputCodePage(wanted));
      EXPECT_EQ(console.OutputCodePage(), wanted);
    }
    const std::tuple<StandardStream, std::uint32_t, std::uint32_t> bits[] = {
        {StandardStream::output, platform::kVirtualTerminalProcessing, 0},
        {StandardStream::input, platform::kQuickEdit, platform::kExtendedFlags}};
    for (const auto& [stream, bit, always] : bits) {
      const std::uint32_t mode = console.Mode(stream).value_or(0) | always;
      for (const std::uint32_t wanted : {mode ^ bit, mode}) {
        EXPECT_TRUE(console.SetMode(stream, wanted));
        EXPECT_EQ(console.Mode(stream), wanted);
      }
    }
    const auto info = console.Info();
    ASSERT_TRUE(info) << CodeOf(info);
    EXPECT_GT(info->Width(), 20);
    EXPECT_GT(info->Height(), 5);
    for (const std::uint16_t attributes : {std::uint16_t{0x1F}, info->attributes}) {
      EXPECT_TRUE(console.SetTextAttributes(attributes));
      EXPECT_EQ(console.Info()->attributes, attributes);
    }
    for (const bool visible : {false, true}) EXPECT_TRUE(console.SetCursorVisible(visible));
    EXPECT_TRUE(console.SetCursor(0, 0));
    console.Write(StandardStream::output, kText);
  });
  EXPECT_EQ(shown, kText);
}

TEST_F(SystemContract, OutputElsewhereIsNoConsole) {
  for (const Output output : {Output::file, Output::nowhere}) {
    const std::string written = side_->WithOutputTo(output, [&] {
      EXPECT_EQ(host_.console.HasStream(StandardStream::output), output == Output::file);
      EXPECT_EQ(CodeOf(host_.console.Mode(StandardStream::output)), 6u);
      EXPECT_EQ(CodeOf(host_.console.SetMode(StandardStream::output, 7)), 6u);
      EXPECT_EQ(CodeOf(host_.console.Info()), 6u);
      EXPECT_EQ(CodeOf(host_.console.SetTextAttributes(7)), 6u);
      EXPECT_EQ(CodeOf(host_.console.SetCursor(0, 0)), 6u);
      EXPECT_EQ(CodeOf(host_.console.SetCursorVisible(true)), 6u);
      host_.console.Write(StandardStream::output, kText);
    });
    EXPECT_EQ(PlainLines(written), output == Output::file ? kText : "");
  }
}

TEST_F(SystemContract, KeysComeAsTheCLibraryGivesThem) {
  EXPECT_FALSE(host_.console.KeyWaiting());
  side_->PressUpAndM();
  for (const int key : {224, 72, int{'m'}}) {
    ASSERT_TRUE(host_.console.KeyWaiting()) << key;
    EXPECT_EQ(host_.console.ReadKey(), key);
  }
  EXPECT_FALSE(host_.console.KeyWaiting());
}

TEST_F(SystemContract, AnErrorBoxReturnsWhenItIsClosed) {
  side_->CloseNextBox();
  host_.system.ShowErrorBox("VOSK contract", "Nothing is wrong.");
}

TEST_F(SystemContract, ALiveProcessCanBeDumpedWithTheRights) {
  const auto child = StartChild(0, 60s);
  const fs::path path = scratch_ / "live.dmp";
  PutBytes(path, "an older dump");
  {
    const auto process = host_.processes.Open(
        access::kQueryInformation | access::kReadMemory | access::kDuplicateHandles, child.pid);
    const auto wait_only = host_.processes.Open(access::kSynchronize, child.pid);
    const auto file = host_.dump_writer.CreateDumpFile(path);
    ASSERT_TRUE(process && wait_only && file);
    EXPECT_EQ(host_.files.SizeOf(path), 0u) << "it is made anew";
    const auto dumped = [&](const platform::ProcessHandle& handle) {
      return host_.dump_writer.WriteDump(handle, child.pid, *file, platform::kDumpWithThreadInfo)
          .has_value();
    };
    EXPECT_FALSE(dumped(*wait_only));
    EXPECT_TRUE(dumped(*process));
  }
  EXPECT_EQ(BytesOf(path).substr(0, 4), "MDMP");
  EXPECT_EQ(host_.processes.ExitCode(child.handle), 259u) << "it lives on";
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 1));
}

}  // namespace
}  // namespace vosk::contract
