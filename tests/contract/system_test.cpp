// Clock, console, dump writer and the known places of the system.
#include "platform/system.h"

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
  EXPECT_EQ(host_.system.InitializeCom(), platform::HResult{0});
  EXPECT_EQ(host_.system.InitializeCom(), platform::HResult{1});
  host_.system.UninitializeCom();
  host_.system.UninitializeCom();
}

TEST_F(SystemContract, RedirectedOutputIsNoConsoleAndGetsTheTextAsItIs) {
  const std::string written = side_->RedirectOutput([&] {
    EXPECT_TRUE(host_.console.HasStream(StandardStream::output));
    EXPECT_EQ(CodeOf(host_.console.Mode(StandardStream::output)), 6u);
    EXPECT_EQ(CodeOf(host_.console.SetMode(StandardStream::output, 7)), 6u);
    EXPECT_EQ(CodeOf(host_.console.Info()), 6u);
    EXPECT_EQ(CodeOf(host_.console.SetTextAttributes(7)), 6u);
    EXPECT_EQ(CodeOf(host_.console.SetCursor(0, 0)), 6u);
    EXPECT_EQ(CodeOf(host_.console.SetCursorVisible(true)), 6u);
    host_.console.Write(StandardStream::output,
                        "Gr\xC3\xBC\xC3\x9F"
                        "e \xE6\x97\xA5\n");
    host_.console.Write(StandardStream::output, "second\n");
  });
  EXPECT_EQ(PlainLines(written),
            "Gr\xC3\xBC\xC3\x9F"
            "e \xE6\x97\xA5\nsecond\n");
}

TEST_F(SystemContract, ADumpFileIsMadeAnewEachTime) {
  const fs::path path = scratch_ / "live.dmp";
  PutBytes(path, "an older dump");
  EXPECT_TRUE(host_.dump_writer.CreateDumpFile(path));
  EXPECT_EQ(host_.files.SizeOf(path), 0u);
  EXPECT_EQ(CodeOf(host_.dump_writer.CreateDumpFile(scratch_ / "missing" / "live.dmp")), 3u);
  EXPECT_EQ(CodeOf(host_.dump_writer.CreateDumpFile(scratch_)), 5u);
}

TEST_F(SystemContract, ALiveProcessCanBeDumped) {
  const auto child = StartChild(0, 60s);
  const fs::path path = scratch_ / "live.dmp";
  {
    const auto process = host_.processes.Open(
        access::kQueryInformation | access::kReadMemory | access::kDuplicateHandles, child.pid);
    ASSERT_TRUE(process);
    const auto file = host_.dump_writer.CreateDumpFile(path);
    ASSERT_TRUE(file);
    EXPECT_TRUE(
        host_.dump_writer.WriteDump(*process, child.pid, *file, platform::kDumpWithThreadInfo));
  }
  EXPECT_EQ(BytesOf(path).substr(0, 4), "MDMP");
  EXPECT_EQ(host_.processes.ExitCode(child.handle), 259u) << "it lives on";
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 1));
}

TEST_F(SystemContract, ADumpNeedsRights) {
  const auto child = StartChild(0, 60s);
  const auto file = host_.dump_writer.CreateDumpFile(scratch_ / "live.dmp");
  ASSERT_TRUE(file);
  const auto wait_only = host_.processes.Open(access::kSynchronize, child.pid);
  ASSERT_TRUE(wait_only);
  EXPECT_FALSE(
      host_.dump_writer.WriteDump(*wait_only, child.pid, *file, platform::kDumpWithThreadInfo));
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 1));
}

}  // namespace
}  // namespace vosk::contract
