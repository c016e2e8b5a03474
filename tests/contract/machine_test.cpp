// The machine, the modules of a process, and the host report over both.
#include "platform/machine.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "platform/processes.h"
#include "platform/system.h"
#include "report/host_info.h"
#include "tests/contract/host_under_test.h"
#include "text/utf.h"

namespace vosk::contract {
namespace {

using namespace std::chrono_literals;
namespace access = platform::access;
namespace fs = std::filesystem;
using platform::NetworkAdapter;
using platform::ProcessHandle;

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
  EXPECT_LE(memory->load_percent, 100u);
  EXPECT_GE(machine_.LogicalProcessors(), 1u);
  EXPECT_LE(machine_.LogicalProcessors(), 1024u);
}

TEST_F(MachineContract, GraphicsAdaptersEndWithTheirOwnAnswer) {
  const auto adapters = machine_.OpenGraphics();
  if (!adapters) {
    // As under Wine without a display.
    EXPECT_TRUE(adapters.error().Failed());
    return;
  }
  std::uint32_t count = 0;
  for (; count < 64; ++count) {
    const auto adapter = (*adapters)->At(count);
    if (!adapter) break;
    const auto description = (*adapter)->Describe();
    ASSERT_TRUE(description) << description.error().value;
    EXPECT_FALSE(description->name.empty());
    EXPECT_EQ(description->name.find(u'\0'), std::u16string::npos);
    const auto level = (*adapter)->TryFeatureLevels(kFeatureLevels);
    if (level) {
      EXPECT_NE(std::ranges::find(kFeatureLevels, *level), kFeatureLevels.end()) << *level;
    } else {
      EXPECT_TRUE(level.error().Failed());
    }
  }
  for (const std::uint32_t index : {count, count + 1, count + 1000}) {
    const auto beyond = (*adapters)->At(index);
    ASSERT_FALSE(beyond);
    EXPECT_EQ(beyond.error(), platform::kNoSuchGraphicsAdapter);
  }
}

TEST_F(MachineContract, NetworkAdaptersAskForTheBufferTheyNeed) {
  const auto network = machine_.OpenNetwork();
  ASSERT_TRUE(network) << CodeOf(network);
  const auto refused = (*network)->Adapters(8);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, platform::kBufferOverflow);
  ASSERT_GT(refused.error().needed_bytes, 8u);
  const auto adapters = (*network)->Adapters(refused.error().needed_bytes);
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

TEST_F(MachineContract, NetworkSessionsMayOverlap) {
  auto first = machine_.OpenNetwork();
  const auto second = machine_.OpenNetwork();
  ASSERT_TRUE(first && second);
  first->reset();
  EXPECT_TRUE((*second)->Adapters(60'000));
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

class ModuleContract : public Contract {
 protected:
  // The file names of the modules in lower case.
  std::vector<std::string> ModulesOf(const ProcessHandle& process) {
    std::vector<std::string> names;
    const auto modules = host_.processes.Modules(process);
    EXPECT_TRUE(modules) << CodeOf(modules);
    for (const auto module : modules.value_or(std::vector<platform::ModuleId>{})) {
      const auto path = host_.processes.ModulePath(process, module);
      EXPECT_TRUE(path) << CodeOf(path);
      if (path) names.push_back(text::ToLowerAscii(text::PathToUtf8(path->filename())));
    }
    return names;
  }
};

TEST_F(ModuleContract, AProcessHasItsProgramAndTheSystemsLibraries) {
  const auto child = StartChild(0, 60s);
  host_.clock.SleepFor(500ms);  // until it has loaded what it needs
  const auto names = ModulesOf(child.handle);
  const auto own = text::ToLowerAscii(text::PathToUtf8(host_.system.ModulePath()->filename()));
  EXPECT_EQ(std::ranges::count(names, own), 1);
  EXPECT_EQ(std::ranges::count(names, "ntdll.dll"), 1);
  EXPECT_EQ(CodeOf(host_.processes.ModulePath(child.handle, 0x1234'0000)), 6u);
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 0));
}

TEST_F(ModuleContract, ModulesNeedTheRightToRead) {
  const auto child = StartChild(0, 60s);
  host_.clock.SleepFor(500ms);
  const auto waiting =
      host_.processes.Open(access::kSynchronize | access::kQueryLimitedInformation, child.pid);
  ASSERT_TRUE(waiting);
  EXPECT_EQ(CodeOf(host_.processes.Modules(*waiting)), 5u);
  const auto reading =
      host_.processes.Open(access::kQueryInformation | access::kReadMemory, child.pid);
  ASSERT_TRUE(reading);
  EXPECT_EQ(ModulesOf(*reading), ModulesOf(child.handle));
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 0));
}

class HostReportContract : public Contract {
 protected:
  // The lines of a fresh report.
  std::vector<std::string> Report() {
    const fs::path path = scratch_ / "hostInfo.txt";
    EXPECT_TRUE(host_info_.GenerateHostInfoFile(path));
    std::istringstream text(PlainLines(BytesOf(path)));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

  bool menu_visible_ = true;  // keeps the log off the console
  console::LogSink log_{host_.console, host_.files, host_.system, host_.clock, menu_visible_};
  std::string core_version_ = "2.14.3";
  report::ProcessModules modules_;
  report::HostInfo host_info_{host_, log_, {"3.3", core_version_, modules_}};
};

TEST_F(HostReportContract, ItHoldsEverySection) {
  const auto child = StartChild(0, 60s);
  host_.clock.SleepFor(500ms);
  modules_ = host_info_.CaptureProcessModules(child.handle);
  EXPECT_TRUE(host_.processes.Terminate(child.handle, 0));
  EXPECT_FALSE(modules_.empty());

  const auto report = Report();
  auto at = report.begin();
  const std::string rule(45, '-');
  for (const std::string& beginning :
       {std::string("--- VELDRAN Crash Report - Host Information ---"),
        std::string("Report Generated (UTC): 20"),
        std::string("Local Time:           20"),
        rule,
        std::string("VOSK Version:            3.3"),
        std::string("VELDRAN Core Version:    2.14.3"),
        std::string("Hostname: "),
        std::string("--- Operating System ---"),
        std::string("OS "),
        std::string("--- Hardware ---"),
        std::string("Processor:    "),
        std::string("Logical CPUs: "),
        std::string("Total RAM:    "),
        std::string("Available RAM:"),
        std::string("Memory Load:  "),
        std::string("--- Graphics Hardware ---"),
        std::string("--- C++ Runtime Environment ---"),
        std::string("Actually Loaded by VELDRAN Core Process:"),
        std::string("ntdll.dll (Version: "),
        std::string("Detected Runtime Version:"),
        std::string("Visual C++ Redistributables:"),
        std::string("Runtime DLLs in System:"),
        std::string(".NET Framework Versions:"),
        std::string("Windows SDK/Runtime:"),
        std::string("  Windows Version: Windows "),
        std::string("  Windows Edition:  "),
        std::string("  Product Type: "),
        std::string("  Service Pack: "),
        std::string("--- Network Interfaces ---"),
        std::string("Adapter: "),
        std::string("    - IPv4: 127.0.0.1 (Private Range)"),
        std::string("--- NAT Status (Heuristic) ---"),
        std::string("Likely Behind NAT Router: "),
        rule}) {
    const auto found = std::find_if(
        at, report.end(), [&](const std::string& line) { return line.starts_with(beginning); });
    ASSERT_NE(found, report.end())
        << "no line begins with: " << beginning
        << " behind: " << (at == report.begin() ? "the start" : *(at - 1));
    at = found + 1;
  }
  EXPECT_EQ(at, report.end());
}

TEST_F(HostReportContract, TwoReportsDifferInTimesAndMemoryOnly) {
  const auto first = Report();
  host_.clock.SleepFor(1100ms);
  const auto second = Report();
  ASSERT_EQ(first.size(), second.size());
  int differences = 0;
  for (std::size_t i = 0; i < first.size(); ++i) {
    if (first[i] == second[i]) continue;
    ++differences;
    EXPECT_TRUE(second[i].starts_with("Report Generated (UTC): ") ||
                second[i].starts_with("Local Time: ") || second[i].starts_with("Available RAM:") ||
                second[i].starts_with("Memory Load: "))
        << first[i] << '\n'
        << second[i];
  }
  EXPECT_GE(differences, 2) << "a second has passed";
}

}  // namespace
}  // namespace vosk::contract
