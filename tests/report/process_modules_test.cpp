#include <gtest/gtest.h>

#include "report/host_info.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"
#include "tests/support/sweep.h"

namespace vosk::report {
namespace {

namespace access = platform::access;
using support::CheckedHost;
using support::SimulatedHost;
using testing::ElementsAre;

constexpr auto kAttachRights = access::kSynchronize | access::kQueryLimitedInformation;
constexpr auto kReadingRights = access::kQueryInformation | access::kReadMemory;

// A running Core with modules, some of them of no interest.
support::SimProcess& AddCore(SimulatedHost& host) {
  support::SimProcess& core = host.processes.Add(u"VELDRAN Core.exe");
  host.PutFile("C:/Core/MSVCP140.dll", "MZ");  // without a version
  core.modules = {{"C:/Core/VELDRAN Core.exe"},
                  {"C:/Windows/System32/ntdll.dll"},
                  {"C:/Windows/System32/KERNEL32.DLL"},
                  {"C:/Windows/System32/user32.dll"},
                  {"C:/Core/plug-in/VCRUNTIME140.dll", true},
                  {"C:/Core/MSVCP140.dll"},
                  {"C:/Core/Müller/msvcp140_1.dll"}};
  host.machine.file_versions = {{"C:/Windows/System32/ntdll.dll", {10, 0, 22621, 2506}},
                                {"C:/Windows/System32/KERNEL32.DLL", {10, 0, 22621, 2715}}};
  return core;
}

ProcessModules Capture(SimulatedHost& host, support::LogRecorder& log, std::uint32_t rights,
                       platform::ProcessId pid) {
  const std::string version;
  const ProcessModules none;
  HostInfo host_info(host.Bundle(), log.Sink(), {"3.3", version, none});
  const auto handle = host.processes.Open(rights, pid);
  return handle ? host_info.CaptureProcessModules(*handle) : ProcessModules{};
}

std::vector<std::string> Lines(const ProcessModules& modules) {
  std::vector<std::string> lines;
  for (const auto& [name, path, version] : modules) {
    lines.push_back(name + " | " + path + " | " + version);
  }
  return lines;
}

TEST(ProcessModulesTest, RuntimeModulesAreKeptInOrderWithTheirVersions) {
  for (const std::uint32_t rights : {kReadingRights, kAttachRights}) {
    CheckedHost host;
    support::LogRecorder log(host);
    const auto modules = Capture(host, log, rights, AddCore(host).pid);
    EXPECT_THAT(
        Lines(modules),
        ElementsAre("KERNEL32.DLL | C:/Windows/System32/KERNEL32.DLL | 10.0.22621.2715",
                    "MSVCP140.dll | C:/Core/MSVCP140.dll | Unknown",
                    "msvcp140_1.dll | C:/Core/Müller/msvcp140_1.dll | <Error reading version: "
                    "2>",
                    "ntdll.dll | C:/Windows/System32/ntdll.dll | 10.0.22621.2506"))
        << "opened with rights " << rights;
    EXPECT_THAT(log.Lines(), support::LogIs({"[ERROR] Failed to read the version of "
                                             "'C:/Core/Müller/msvcp140_1.dll': 2"}));
  }
}

TEST(ProcessModulesTest, AProcessThatCannotBeReadHasNone) {
  CheckedHost host;
  support::LogRecorder log(host);
  support::SimProcess& core = AddCore(host);
  const auto held = host.processes.Open(kAttachRights, core.pid);
  host.processes.End(core, 0xC0000005);
  EXPECT_THAT(Capture(host, log, kReadingRights, core.pid), testing::IsEmpty());
  EXPECT_THAT(Capture(host, log, kAttachRights, core.pid), testing::IsEmpty());
  EXPECT_THAT(log.Lines(),
              support::LogIs({"[ERROR] CaptureProcessModules: EnumProcessModules failed: 299",
                              "[ERROR] CaptureProcessModules: EnumProcessModules failed: 299"}));
}

TEST(ProcessModulesTest, AFailureCostsNoMoreThanItHasTo) {
  support::SweepFaults([](SimulatedHost& host) {
    support::LogRecorder log(host);
    const auto pid = AddCore(host).pid;
    const auto modules = Capture(host, log, kReadingRights, pid);
    const auto& fired = host.choke.faults.Fired();
    const std::string failed = fired.empty() ? "" : fired[0].operation;
    if (failed == "processes.Open" || failed == "processes.Modules") {
      // A refusal is answered by opening the process once more.
      const bool refused = failed == "processes.Modules" && fired[0].fault.code == 5;
      EXPECT_EQ(modules.size(), refused ? 4u : 0u);
    } else {
      EXPECT_GE(modules.size(), failed == "processes.ModulePath" ? 3u : 4u) << failed;
    }
  });
}

}  // namespace
}  // namespace vosk::report
