// The machine, the modules of a process, and the host report over both.
#include "platform/machine.h"

#include <algorithm>
#include <array>

#include "platform/processes.h"
#include "platform/system.h"
#include "report/host_info/host_info.h"
#include "tests/contract/host_under_test.h"
#include "text/utf.h"

namespace vosk::contract {
namespace {

using namespace std::chrono_literals;
namespace access = platform::access;
namespace fs = std::filesystem;
using platform::NetworkAdapter;

constexpr std::array<std::uint32_t, 3> kFeatureLevels{0xb100, 0xb000, 0x9100};

class MachineContract : public Contract {
 protected:
  platform::Machine& machine_ = host_.machine;
};

TEST_F(MachineContract, MemoryAndProcessorsArePlausible) {
  const auto memory = machine_.Memory();
  ASSERT_TRUE(memory) << CodeOf(memory);
  EXPECT_GE(memory->total_physical, 256ull << 20);
  EXPECT_LE(memory->available_physical, memory->total_physical);
  EXPECT_GE(machine_.LogicalProcessors(), 1u);
}

// Returns whether an HRESULT is a failure.
bool IsFailure(platform::ErrorCode result) {
  return (result.value & 0x80000000u) != 0;
}

TEST_F(MachineContract, GraphicsAdaptersEndWithTheirOwnAnswer) {
  const auto adapters = machine_.OpenGraphics();
  if (!adapters) {
    // This happens under Wine without a display.
    EXPECT_TRUE(IsFailure(adapters.error().code));
    return;
  }
  std::uint32_t count = 0;
  for (; count < 64; ++count) {
    const auto adapter = (*adapters)->At(count);
    if (!adapter) break;
    const auto description = (*adapter)->Describe();
    ASSERT_TRUE(description) << CodeOf(description);
    EXPECT_FALSE(description->name.empty());
    EXPECT_EQ(description->name.find(u'\0'), std::u16string::npos);
    const auto level = (*adapter)->TryFeatureLevels(kFeatureLevels);
    if (level) {
      EXPECT_NE(std::ranges::find(kFeatureLevels, *level), kFeatureLevels.end()) << *level;
    } else {
      EXPECT_TRUE(IsFailure(level.error().code));
    }
  }
  const auto beyond = (*adapters)->At(count);
  ASSERT_FALSE(beyond);
  EXPECT_EQ(beyond.error(), platform::kNoSuchGraphicsAdapter);
}

TEST_F(MachineContract, NetworkAdaptersAskForTheBufferTheyNeed) {
  const auto network = machine_.OpenNetwork();
  ASSERT_TRUE(network) << CodeOf(network);
  std::uint32_t size = 8;
  const auto refused = (*network)->Adapters(size);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error(), platform::kBufferOverflow);
  ASSERT_GT(size, 8u);
  const auto adapters = (*network)->Adapters(size);
  ASSERT_TRUE(adapters) << adapters.error().code.value;
  ASSERT_FALSE(adapters->empty());
  const auto is_loopback = [](const NetworkAdapter& adapter) {
    return adapter.interface_type == 24 &&
           std::ranges::any_of(adapter.addresses, [](const platform::UnicastAddress& address) {
             return address.text == "127.0.0.1";
           });
  };
  EXPECT_TRUE(std::ranges::any_of(*adapters, is_loopback));
  for (const NetworkAdapter& adapter : *adapters) {
    EXPECT_NE(adapter.index, 0u);
    for (const auto& address : adapter.addresses) EXPECT_TRUE(address.text);
  }
}

TEST_F(MachineContract, FilesOfTheSystemHaveVersions) {
  const auto directory = machine_.SystemDirectory();
  ASSERT_TRUE(directory) << CodeOf(directory);
  EXPECT_EQ(host_.files.Exists(*directory / "kernel32.dll"), true);
  const auto version = machine_.VersionOf(*directory / "kernel32.dll");
  ASSERT_TRUE(version) << CodeOf(version);
  EXPECT_GE(version->front(), 5u);

  PutBytes(scratch_ / "text.dll", "no resources");
  const std::uint32_t without = CodeOf(machine_.VersionOf(scratch_ / "text.dll"));
  EXPECT_TRUE(without == 1812 || without == 1813 || without == 193) << without;
  EXPECT_EQ(CodeOf(machine_.VersionOf(scratch_ / "missing.dll")), 2u);
}

TEST_F(MachineContract, WindowsHasAVersionAndAnEdition) {
  const auto version = machine_.OperatingSystem();
  ASSERT_TRUE(version) << CodeOf(version);
  EXPECT_GE(version->major, 6u);
  EXPECT_GT(version->build, 0u);
  EXPECT_GE(version->product_type, platform::kWorkstation);
  EXPECT_LE(version->product_type, platform::kServer);
  EXPECT_TRUE(machine_.ProductCode(*version));
}

TEST_F(MachineContract, ModulesAreTheProgramAndTheSystemsLibraries) {
  const auto child = StartChild(0, 60s);
  host_.clock.SleepFor(500ms);  // until it has loaded what it needs
  const auto reading =
      host_.processes.Open(access::kQueryInformation | access::kReadMemory, child.pid);
  const auto waiting =
      host_.processes.Open(access::kSynchronize | access::kQueryLimitedInformation, child.pid);
  ASSERT_TRUE(reading && waiting);
  EXPECT_EQ(CodeOf(host_.processes.Modules(*waiting)), 5u);
  const auto modules = host_.processes.Modules(*reading);
  ASSERT_TRUE(modules) << CodeOf(modules);
  std::vector<std::string> names;
  for (const platform::ModuleId module : *modules) {
    const auto path = host_.processes.ModulePath(*reading, module);
    ASSERT_TRUE(path) << CodeOf(path);
    names.push_back(text::ToLowerAscii(text::PathToUtf8(path->filename())));
  }
  const auto own = text::ToLowerAscii(text::PathToUtf8(host_.system.ModulePath()->filename()));
  for (const std::string& name : {own, std::string("ntdll.dll")}) {
    EXPECT_EQ(std::ranges::count(names, name), 1) << name;
  }
  EXPECT_EQ(CodeOf(host_.processes.ModulePath(*reading, 0x1234'0000)), 6u);
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 0));
}

TEST_F(MachineContract, AHostReportIsWholeOnEitherSide) {
  const bool menu_visible = true;  // keeps the log off the console
  console::LogSink log(host_.console, host_.files, host_.system, host_.clock, menu_visible);
  const std::string core_version = "2.14.3";
  const report::ProcessModules modules;
  report::HostInfo host_info(host_, log, {"3.3", core_version, modules});
  const fs::path path = scratch_ / "hostInfo.txt";
  ASSERT_TRUE(host_info.GenerateHostInfoFile(path));
  const std::string report = BytesOf(path);
  std::size_t at = 0;
  for (const char* part :
       {"Host Information", "Report Generated (UTC): 20", "Operating System", "\nOS ", "Hardware",
        "Total RAM:", "Graphics Hardware", "C++ Runtime Environment", "Windows Version: Windows ",
        "Service Pack: ", "Network Interfaces", "Adapter: ", "- IPv4: 127.0.0.1 (Private Range)",
        "Likely Behind NAT Router: "}) {
    at = report.find(part, at);
    ASSERT_NE(at, std::string::npos) << part << " is missing, or comes too early in\n" << report;
  }
}

}  // namespace
}  // namespace vosk::contract
