#include "platform/processes.h"

#include <array>
#include <map>

#include "tests/contract/host_under_test.h"
#include "text/utf.h"

namespace vosk::contract {
namespace {

using namespace std::chrono_literals;
namespace access = platform::access;
namespace fs = std::filesystem;
using platform::ProcessHandle;
using platform::ProcessId;
using platform::WaitOutcome;

constexpr auto kLong = 60s;

class ProcessContract : public Contract {
 protected:
  // Returns the names of the processes in one snapshot.
  std::map<ProcessId, std::string> ListedNow() {
    std::map<ProcessId, std::string> names;
    const auto snapshot = host_.processes.TakeSnapshot();
    EXPECT_TRUE(snapshot);
    auto entry = (*snapshot)->First();
    for (; entry; entry = (*snapshot)->Next()) {
      names[entry->pid] = text::WideToUtf8(entry->executable_name);
    }
    EXPECT_EQ(CodeOf(entry), 18u);
    EXPECT_EQ(CodeOf((*snapshot)->Next()), 18u) << "the end is the end";
    return names;
  }
};

TEST_F(ProcessContract, AChildRunsAndEndsWithItsCode) {
  const auto before = host_.clock.WallNow() - 1s;  // the clock that stamps processes may be coarser
  const auto child = StartChild(0xC0000005, 400ms);
  const auto started = host_.processes.StartTime(child.handle);
  ASSERT_TRUE(started);
  EXPECT_GT(*started, before);
  EXPECT_LE(*started, host_.clock.WallNow() + 1s);
  EXPECT_EQ(host_.processes.Id(child.handle), child.pid);
  EXPECT_EQ(host_.processes.ExitCode(child.handle), 259u);
  EXPECT_EQ(host_.processes.WaitFor(child.handle, 20ms), WaitOutcome::timed_out);
  EXPECT_EQ(host_.processes.WaitFor(child.handle, kLong), WaitOutcome::finished);
  EXPECT_EQ(host_.processes.ExitCode(child.handle), 0xC0000005u);
}

TEST_F(ProcessContract, AnEndedProcessCanBeOpenedOnlyWhileSomebodyHoldsIt) {
  auto child = StartChild(7, 0ms);
  EXPECT_EQ(host_.processes.WaitFor(child.handle, kLong), WaitOutcome::finished);
  {
    const auto again = host_.processes.Open(access::kQueryLimitedInformation, child.pid);
    ASSERT_TRUE(again) << CodeOf(again);
    EXPECT_EQ(host_.processes.ExitCode(*again), 7u);
  }
  child.handle.Reset();
  // The system itself may hold it for a moment longer.
  for (int wait = 0; wait < 40; ++wait) {
    if (!host_.processes.Open(access::kQueryLimitedInformation, child.pid)) break;
    host_.clock.SleepFor(50ms);
  }
  EXPECT_EQ(CodeOf(host_.processes.Open(access::kQueryLimitedInformation, child.pid)), 87u);
  EXPECT_EQ(CodeOf(host_.processes.Open(access::kQueryLimitedInformation, 0)), 87u);
}

TEST_F(ProcessContract, TerminatingEndsAProcessOnce) {
  const auto child = StartChild(0, kLong);
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 77));
  EXPECT_EQ(host_.processes.WaitFor(child.handle, kLong), WaitOutcome::finished);
  EXPECT_EQ(host_.processes.ExitCode(child.handle), 77u);
  // Windows refuses the second time, Wine reports success.
  const std::uint32_t second = CodeOf(host_.processes.Terminate(child.handle, 78));
  EXPECT_TRUE(second == 5 || second == 0) << second;
  EXPECT_EQ(host_.processes.ExitCode(child.handle), 77u);
}

TEST_F(ProcessContract, AHandleAllowsWhatItWasOpenedFor) {
  const auto child = StartChild(0, kLong);
  const auto wait_only = host_.processes.Open(access::kSynchronize, child.pid);
  const auto query_only = host_.processes.Open(access::kQueryLimitedInformation, child.pid);
  ASSERT_TRUE(wait_only && query_only);
  const auto codes = [&](const ProcessHandle& handle) {
    return std::array{CodeOf(host_.processes.Id(handle)), CodeOf(host_.processes.ExitCode(handle)),
                      CodeOf(host_.processes.StartTime(handle)),
                      CodeOf(host_.processes.Terminate(handle, 1)),
                      CodeOf(host_.processes.WaitFor(handle, 0ms))};
  };
  using Codes = std::array<std::uint32_t, 5>;
  EXPECT_EQ(codes(*wait_only), (Codes{5, 5, 5, 5, 0}));
  EXPECT_EQ(codes(*query_only), (Codes{0, 0, 0, 5, 5}));
  EXPECT_EQ(codes(ProcessHandle()), (Codes{6, 6, 6, 6, 6}));
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 1));
}

TEST_F(ProcessContract, ASnapshotListsWhatRuns) {
  const std::string own_name = text::PathToUtf8(host_.system.ModulePath()->filename());
  const auto child = StartChild(0, kLong);
  auto listed = ListedNow();
  for (const ProcessId pid : {host_.processes.OwnId(), child.pid}) {
    EXPECT_EQ(listed[pid], own_name) << "without its folder";
  }
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 1));
  EXPECT_EQ(host_.processes.WaitFor(child.handle, kLong), WaitOutcome::finished);
  EXPECT_FALSE(ListedNow().contains(child.pid)) << "ended, though its handle is held";
}

TEST_F(ProcessContract, AnUnquotedCommandLineFindsAFileWithBlanks) {
  const fs::path own_file = *host_.system.ModulePath();
  const fs::path folder = scratch_ / "with a blank";
  const fs::path copy = folder / own_file.filename();
  fs::create_directories(folder);
  fs::copy_file(own_file, copy);
  const auto child =
      host_.processes.Start({.command_line = text::PathToUtf8(copy) + " --child 5 1000",
                             .working_directory = folder,
                             .console = platform::ConsoleOfChild::no_window});
  ASSERT_TRUE(child) << CodeOf(child);
  EXPECT_EQ(CodeOf(host_.files.Remove(copy)), 5u) << "it runs";
  EXPECT_TRUE(host_.files.Rename(copy, scratch_ / "elsewhere.exe")) << "though it runs";
  EXPECT_EQ(host_.processes.WaitFor(child->handle, kLong), WaitOutcome::finished);
  EXPECT_EQ(host_.processes.ExitCode(child->handle), 5u);
}

TEST_F(ProcessContract, AStartFailsWithTheReason) {
  const std::string missing = text::PathToUtf8(scratch_ / "missing.exe");
  EXPECT_EQ(CodeOf(host_.processes.Start({.command_line = '"' + missing + '"'})), 2u);
  EXPECT_EQ(CodeOf(host_.processes.Start({.command_line = missing})), 2u);
  EXPECT_EQ(CodeOf(host_.processes.Start(
                {.command_line = ChildCommand(0, 0ms), .working_directory = scratch_ / "missing"})),
            267u);
  const fs::path torn = scratch_ / "torn.exe";
  for (const char* rest : {"", "M"}) {
    PutBytes(torn, rest);
    EXPECT_EQ(CodeOf(host_.processes.Start({.command_line = '"' + text::PathToUtf8(torn) + '"'})),
              193u);
  }
}

TEST_F(ProcessContract, TaskkillEndsAProcessOrSaysThatThereIsNone) {
  const auto child = StartChild(0, kLong);
  const std::string command = "taskkill /F /PID " + std::to_string(child.pid);
  EXPECT_EQ(host_.processes.RunShellCommand(command), 0);
  EXPECT_EQ(host_.processes.WaitFor(child.handle, kLong), WaitOutcome::finished);
  // Its exit code is 1 on Windows and 0 under Wine.
  EXPECT_NE(host_.processes.ExitCode(child.handle), 259u);
  EXPECT_EQ(host_.processes.RunShellCommand("taskkill /F /PID 999999996"), 128);
}

TEST_F(ProcessContract, PrivilegesAreEnabledThroughTheOwnToken) {
  const auto privilege = host_.processes.LookUpPrivilege("SeDebugPrivilege");
  ASSERT_TRUE(privilege);
  EXPECT_EQ(CodeOf(host_.processes.LookUpPrivilege("SeNoSuchPrivilege")), 1313u);
  const auto token =
      host_.processes.OpenOwnToken(platform::kTokenQuery | platform::kTokenAdjustPrivileges);
  ASSERT_TRUE(token);
  EXPECT_TRUE(host_.processes.EnablePrivilege(*token, *privilege).accepted);

  const auto query_only = host_.processes.OpenOwnToken(platform::kTokenQuery);
  ASSERT_TRUE(query_only);
  const auto refused = host_.processes.EnablePrivilege(*query_only, *privilege);
  EXPECT_FALSE(refused.accepted);
  EXPECT_EQ(refused.last_error, platform::kAccessDenied);
}

}  // namespace
}  // namespace vosk::contract
