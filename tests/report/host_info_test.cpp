#include "report/host_info.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "report/host_info_sections.h"
#include "tests/support/log_recorder.h"
#include "tests/support/simulated_host.h"
#include "tests/support/stored_text.h"
#include "tests/support/sweep.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

using platform::AddressFamily;
using platform::NetworkAdapter;
using support::LogHas;
using support::SimGraphicsAdapter;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::filesystem::path kReport = "C:/Users/op/hostInfo.txt";
const std::string kWindowsKey = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)";
const std::string kProcessorKey = R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)";
const std::string kVisualStudioKey = R"(SOFTWARE\Microsoft\VisualStudio\)";
const std::string kDotNetKey = R"(SOFTWARE\Microsoft\NET Framework Setup\NDP)";

class HostInfoTest : public testing::Test {
 protected:
  void InstallWindows11() {
    support::SimRegistry& registry = host_.registry;
    registry.PutText(kWindowsKey, "ProductName", "Windows 11 Pro");
    registry.PutText(kWindowsKey, "DisplayVersion", "23H2");
    registry.PutText(kWindowsKey, "CurrentVersion", "6.3");
    registry.PutText(kWindowsKey, "CurrentBuildNumber", "22631");
    registry.PutNumber(kWindowsKey, "UBR", 3155);
    InstallSoftware();
  }

  void InstallSoftware() {
    support::SimRegistry& registry = host_.registry;
    registry.PutText(kProcessorKey, "ProcessorNameString", "AMD Ryzen 7 5800X 8-Core Processor");
    const auto put_runtime = [&](const std::string& key, std::uint32_t installed,
                                 const char* version) {
      registry.PutNumber(key, "Installed", installed);
      if (version != nullptr) registry.PutText(key, "Version", version);
    };
    put_runtime(kVisualStudioKey + R"(14.0\VC\Runtimes\x64)", 1, "v14.38.33135.00");
    put_runtime(kVisualStudioKey + R"(10.0\VC\VCRedist\x86)", 1, nullptr);
    put_runtime(kVisualStudioKey + R"(12.0\VC\Runtimes\x64)", 0, "v12.0.40660.00");
    put_runtime(R"(SOFTWARE\WOW6432Node\Microsoft\VisualStudio\14.0\VC\Runtimes\x86)", 1,
                "v14.36.32532.00");
    registry.PutNumber(kDotNetKey + R"(\v3.5)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v2.0.50727)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v3.0)", "Install", 0);
    registry.PutNumber(kDotNetKey + R"(\CDF\v4.0)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v4\Full)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v4\Full)", "Release", 533320);
    InstallLibrary("msvcp140.dll", {14, 38, 33135, 0});
    InstallLibrary("ucrtbase.dll", {10, 0, 22621, 2506});
    for (const char* name : {"user32.dll", "msvcr110.dll"}) {
      host_.PutFile(host_.machine.system_directory / name, "MZ");
    }
  }

  void InstallLibrary(const std::string& name, platform::FileVersion version) {
    const auto path = host_.machine.system_directory / name;
    host_.PutFile(path, "MZ");
    host_.machine.file_versions[path] = version;
  }

  void Fail(const std::string& operation, std::uint32_t code, int first = 1, int count = 1) {
    host_.choke.faults.Add({.scope = operation, .first = first, .count = count, .code = code});
  }

  // The report as it stands in its file.
  std::string Report() {
    HostInfo host_info(host_.Bundle(), log_.Sink(), {vosk_version_, core_version_, modules_});
    EXPECT_TRUE(host_info.GenerateHostInfoFile(kReport));
    return host_.ReadFile(kReport);
  }

  support::SimulatedHost host_;
  support::LogRecorder log_{host_};
  std::string vosk_version_ = "3.3";
  std::string core_version_ = "2.14.3";
  ProcessModules modules_ = {
      {"kernel32.dll", "C:/Windows/System32/kernel32.dll", "10.0.22621.2506"},
      {"msvcp140.dll", "C:/Windows/System32/msvcp140.dll", "14.38.33135.0"}};
};

TEST_F(HostInfoTest, AnOrdinaryWorkstation) {
  InstallWindows11();
  support::ExpectStoredText("report/host_reports/workstation.txt", Report());
  EXPECT_THAT(
      log_.Lines(),
      support::LogIs({"[INFO] Generating host info file: C:/Users/op/hostInfo.txt",
                      "[INFO] Finished generating host info file: C:/Users/op/hostInfo.txt"}));
}

TEST_F(HostInfoTest, TwoReportsOfOneMachineDifferInTimesAndMemoryOnly) {
  InstallWindows11();
  const std::string first = Report();
  host_.clock.SleepFor(std::chrono::hours(20));
  host_.machine.memory.available_physical /= 3;
  host_.machine.memory.load_percent = 81;
  std::ranges::reverse(host_.machine.network);  // as after a change of metrics
  const std::string second = Report();
  std::istringstream before(first), after(second);
  std::vector<std::string> differing;
  for (std::string one, other; std::getline(before, one) && std::getline(after, other);) {
    if (one != other) differing.push_back(other);
  }
  EXPECT_THAT(differing, testing::ElementsAre("Report Generated (UTC): 2025-03-02 04:00:00 UTC",
                                              "Local Time:           2025-03-02 05:00:00",
                                              "Available RAM:3.00 GB", "Memory Load:  81%"));
  EXPECT_EQ(std::ranges::count(first, '\n'), std::ranges::count(second, '\n'));
}

// No graphics, no network beyond loopback, nothing installed, nobody knows any version.
TEST_F(HostInfoTest, ABareDomainController) {
  host_.registry.PutText(kWindowsKey, "ProductName", "Windows Server 2016 Datacenter");
  host_.registry.PutText(kWindowsKey, "CurrentVersion", "6.3");
  host_.registry.PutText(kWindowsKey, "CurrentBuildNumber", "14393");
  host_.registry.PutNumber(kWindowsKey, "UBR", 0);
  host_.registry.PutKey(kProcessorKey);
  host_.registry.PutKey(kDotNetKey);
  host_.machine.graphics.clear();
  host_.machine.network = {support::LoopbackAdapter()};
  host_.machine.windows = {.major = 10,
                           .minor = 0,
                           .build = 14393,
                           .product_type = platform::kDomainController,
                           .service_pack = u"Service Pack 1"};
  host_.machine.product_code = 0x0C;
  vosk_version_.clear();
  core_version_ = "0.0.0";
  modules_.clear();
  support::ExpectStoredText("report/host_reports/bare_domain_controller.txt", Report());
  EXPECT_THAT(log_.Lines(),
              LogHas({"[ERROR] Failed to read registry value ProcessorNameString: 2",
                      "[WARN] EnumerateGPUs: No graphics adapters enumerated. This is unusual."}));
}

NetworkAdapter UnusualAdapter(std::uint32_t index) {
  NetworkAdapter adapter = support::EthernetAdapter(index, u"Büro – 事務所", "203.0.113.9");
  switch (index % 5) {
    case 0:
      adapter.friendly_name.reset();
      adapter.addresses.clear();
      break;
    case 1:
      adapter.interface_type = 71;
      adapter.is_up = false;
      adapter.physical_address.resize(8);
      break;
    case 2:
      adapter.interface_type = 131;
      adapter.physical_address.clear();
      adapter.addresses = {{AddressFamily::ipv4, "10.8.0.2"}};
      break;
    case 3:
      adapter.interface_type = 243;
      adapter.friendly_name = u"half a pair \xd83d";
      adapter.addresses = {{AddressFamily::ipv4, tl::unexpected(platform::ErrorCode{10022})},
                           {AddressFamily::ipv6, tl::unexpected(platform::ErrorCode{10047})},
                           {AddressFamily::ipv6, "2001:db8::7"}};
      break;
    default:
      break;
  }
  return adapter;
}

// Every kind of graphics and network adapter, names that are not ASCII.
TEST_F(HostInfoTest, AMachineWithManyAdapters) {
  InstallWindows11();
  platform::RegistryValue unterminated = support::TextValue("23H2");
  unterminated.data.resize(9);  // and half a character
  host_.registry.PutValue(kWindowsKey, "DisplayVersion", unterminated);
  host_.system.computer_name = "rig-Zürich-東京";
  host_.machine.newest_feature_level = 0xb100;
  auto& graphics = host_.machine.graphics;
  const auto add = [&](std::u16string name, std::uint32_t vendor, std::uint64_t mebibytes,
                       std::optional<std::uint32_t> feature_level, std::uint32_t flags) {
    SimGraphicsAdapter adapter{{.name = std::move(name),
                                .vendor_id = vendor,
                                .dedicated_video_memory = mebibytes << 20,
                                .shared_system_memory = 3ull << 30,
                                .luid = {1, static_cast<std::uint32_t>(0x4000 + graphics.size())},
                                .flags = flags},
                               feature_level};
    graphics.push_back(std::move(adapter));
  };
  graphics.clear();
  add(u"Intel(R) UHD Graphics 630", 0x8086, 511, 0xb000, 0);
  add(u"Intel(R) Arc™ A380", 0x8086, 512, 0xa100, 0);
  add(u"NVIDIA GeForce RTX 4090", 0x10DE, 24'564, std::nullopt, 0);
  add(u"Microsoft Basic Render Driver", 0x1414, 0, 0xb100, platform::kSoftwareGraphicsAdapter);

  host_.machine.network.clear();
  for (std::uint32_t index = 40; index > 0; --index) {
    host_.machine.network.push_back(UnusualAdapter(index));
  }
  support::ExpectStoredText("report/host_reports/many_adapters.txt", Report());
  EXPECT_THAT(
      log_.Lines(),
      LogHas({"[WARN] EnumerateGPUs: D3D11CreateDevice failed for adapter 2. HRESULT: 0x887a0004",
              "[INFO] GetAdaptersAddresses buffer overflow, resizing to 24000 bytes (Attempt 1)",
              "[ERROR] Failed to convert an IPv4 address: 10022",
              "[ERROR] Failed to convert an IPv6 address: 10047"}));
  EXPECT_THAT(host_.choke.Trace(), testing::Contains("machine.Network.Adapters 24000 bytes"));
}

TEST_F(HostInfoTest, EverySectionTellsOfItsFailure) {
  host_.registry.PutNumber(kWindowsKey, "ProductName", 7);
  host_.registry.PutText(kWindowsKey, "UBR", "3155");
  InstallSoftware();
  host_.registry.Restrict(kProcessorKey, 0);
  host_.registry.Restrict(kVisualStudioKey + R"(14.0\VC\Runtimes\x64)", 0);
  host_.registry.Restrict(kDotNetKey, 0);
  Fail("system.ComputerName", 111);
  Fail("machine.Memory", 31);
  Fail("machine.OpenGraphics", 0x887A0004);
  Fail("machine.SystemDirectory", 3);
  Fail("machine.OperatingSystem", 127);
  Fail("machine.OpenNetwork", 10091);
  support::ExpectStoredText("report/host_reports/every_section_failed.txt", Report());
  EXPECT_THAT(
      log_.Lines(),
      LogHas(
          {"[ERROR] GetComputerNameW failed: 111",
           "[ERROR] Failed to read registry value ProductName: 1630",
           "[ERROR] Failed to read registry values DisplayVersion and CurrentVersion",
           "[ERROR] Failed to read registry value CurrentBuildNumber: 2",
           "[ERROR] Failed to read registry value UBR: 1630",
           "[ERROR] Failed to open CentralProcessor registry key: 5",
           "[ERROR] GlobalMemoryStatusEx failed: 31",
           "[ERROR] EnumerateGPUs: CreateDXGIFactory1 failed. HRESULT: 0x887a0004",
           R"([ERROR] Failed to open registry key HKLM\SOFTWARE\Microsoft\VisualStudio\14.0\VC\Runtimes\x64: 5)",
           "[ERROR] Failed to get system directory: 3",
           "[ERROR] Failed to query .NET Framework registry: 5",
           "[ERROR] RtlGetVersion failed: 127", "[ERROR] WSAStartup failed: 10091"}));
}

// Failures that hide each other or leave most of their section standing.
TEST_F(HostInfoTest, SingleFailuresLeaveTheRestStanding) {
  InstallWindows11();
  struct Row {
    const char* operation;
    std::uint32_t code;
    int first;
    std::string line;
    std::string logged;
  };
  const Row rows[] = {
      {"registry.Open", 2, 1,
       "OS Info: <Error opening registry key HKLM\\SOFTWARE\\Microsoft\\Windows "
       "NT\\CurrentVersion: 2>",
       "Failed to open Windows NT\\CurrentVersion registry key: 2"},
      {"machine.Graphics.Describe", 0x887A0005, 1,
       "GPU 0: <Failed to get adapter description. HRESULT: 0x887a0005>",
       "EnumerateGPUs: GetDesc1 failed for adapter 0. HRESULT: 0x887a0005"},
      {"machine.Graphics.At", 0x887A0005, 2,
       "GPU 1: <Failed to enumerate adapter. HRESULT: 0x887a0005>",
       "EnumerateGPUs: EnumAdapters1 failed for adapter 1. HRESULT: 0x887a0005"},
      {"files.Exists", 5, 1, "msvcp140.dll: <Error looking for the file: 5>",
       "Failed to look for 'C:/Windows/System32/msvcp140.dll': Access is denied."},
      {"machine.VersionOf", 32, 3, "ucrtbase.dll: Found (Version: <Error reading version: 32>)",
       "Failed to read the version of 'C:/Windows/System32/ucrtbase.dll': 32"},
      {"registry.SubKeyName", 5, 3, "  <Failed to query .NET Framework registry>",
       "Failed to query .NET Framework registry: 5"},
      {"machine.ProductCode", 127, 1, "  Windows Edition: <GetProductInfo failed: 127>",
       "GetProductInfo failed: 127"},
      {"machine.Network.Adapters", 232, 1,
       "Network Info: <GetAdaptersAddresses failed with error: 232>",
       "GetAdaptersAddresses failed: 232"},
  };
  const std::string whole = Report();
  for (const Row& row : rows) {
    host_.choke.faults.Clear();
    Fail(row.operation, row.code, row.first);
    const std::string report = Report();
    EXPECT_THAT(report, HasSubstr('\n' + row.line + '\n'));
    EXPECT_THAT(log_.Lines(), testing::Contains("[ERROR] " + row.logged));
    // Everything after the failed section is as it was.
    const std::string tail = whole.substr(whole.find("--- NAT Status") + 60);
    EXPECT_TRUE(report.ends_with(tail)) << row.operation << '\n' << report;
  }
}

TEST_F(HostInfoTest, AddressesAreAskedForThreeTimesAtMost) {
  host_.machine.network.assign(30, support::EthernetAdapter(3, u"Ethernet", "10.0.0.1"));
  host_.machine.growth_between_calls = 600;
  EXPECT_THAT(Report(),
              AllOf(HasSubstr("Network Info: <GetAdaptersAddresses failed with error: 111>\n"),
                    HasSubstr("Likely Behind NAT Router: No\n")));
  const auto lines = log_.Lines();
  EXPECT_THAT(
      lines,
      testing::IsSupersetOf(
          {"[INFO] GetAdaptersAddresses buffer overflow, resizing to 18000 bytes (Attempt 1)",
           "[INFO] GetAdaptersAddresses buffer overflow, resizing to 18600 bytes (Attempt 2)",
           "[ERROR] GetAdaptersAddresses failed: 111"}));
  const auto asked = [](const std::string& call) {
    return call.starts_with("machine.Network.Adapters");
  };
  EXPECT_EQ(std::ranges::count_if(host_.choke.Trace(), asked), 3);
}

TEST_F(HostInfoTest, FeatureLevelsAreTriedDownToTheOldest) {
  InstallWindows11();
  host_.machine.newest_feature_level = 0x9100;
  host_.machine.graphics[0].feature_level = 0x9100;
  EXPECT_THAT(Report(), HasSubstr("  Feature Level:  DirectX 9.1\n  D3D11 Support:  Yes\n"));
  host_.machine.newest_feature_level = 0;
  EXPECT_THAT(Report(), HasSubstr("  Feature Level:  Unknown\n"
                                  "  D3D11 Support:  No (or driver issue)\n"));
}

TEST_F(HostInfoTest, ATimeThatCannotBeConvertedIsSaidToBeSo) {
  std::ostringstream out;
  const SectionContext context{out,           log_.Sink(),    host_.files,
                               host_.machine, host_.registry, host_.system};
  WriteTimes(context, std::numeric_limits<std::time_t>::max(), host_.clock.LocalNow());
  EXPECT_THAT(out.str(),
              AllOf(testing::StartsWith("Report Generated (UTC): <Error converting time: "),
                    testing::EndsWith(">\nLocal Time:           2025-03-01 09:00:00\n")));
  EXPECT_THAT(
      log_.Lines(),
      testing::Contains(testing::StartsWith("[ERROR] Failed to convert the current time: ")));
}

TEST_F(HostInfoTest, AnOldReportIsReplaced) {
  InstallWindows11();
  host_.PutFile(kReport, std::string(100'000, 'x'));
  EXPECT_THAT(Report(), AllOf(testing::StartsWith("--- VELDRAN"), Not(HasSubstr("xxx"))));
}

TEST_F(HostInfoTest, AFileThatCannotBeOpenedIsTheOnlyFailure) {
  HostInfo host_info(host_.Bundle(), log_.Sink(), {vosk_version_, core_version_, modules_});
  std::filesystem::create_directories("C:/Users/op/folder");
  EXPECT_FALSE(host_info.GenerateHostInfoFile("C:/Users/op/folder"));
  EXPECT_FALSE(host_info.GenerateHostInfoFile("C:/Users/nobody/hostInfo.txt"));
  EXPECT_THAT(log_.Lines(),
              support::LogIs({"[INFO] Generating host info file: C:/Users/op/folder",
                              "[ERROR] Failed to open host info file for writing: "
                              "C:/Users/op/folder. Errno: 13",
                              "[INFO] Generating host info file: C:/Users/nobody/hostInfo.txt",
                              "[ERROR] Failed to open host info file for writing: "
                              "C:/Users/nobody/hostInfo.txt. Errno: 2"}));
}

TEST_F(HostInfoTest, AFullDiskIsTold) {
  host_.files.disk_full = true;
  EXPECT_EQ(Report(), "");
  // The log file is on the same disk.
  EXPECT_THAT(
      log_.Sink().RecentLogLines(),
      testing::Contains(HasSubstr("Failed to write all of host info file: " + kReport.string())));
}

class ThrowingMachine : public support::SimMachine {
 public:
  using SimMachine::SimMachine;
  std::uint32_t LogicalProcessors() override { throw std::runtime_error("no processors"); }
};

TEST_F(HostInfoTest, AnExceptionEndsItsSectionOnly) {
  InstallWindows11();
  ThrowingMachine machine(host_.choke);
  const platform::Host whole = host_.Bundle();
  const platform::Host host{.clock = whole.clock,
                            .console = whole.console,
                            .dump_writer = whole.dump_writer,
                            .files = whole.files,
                            .installer = whole.installer,
                            .machine = machine,
                            .processes = whole.processes,
                            .registry = whole.registry,
                            .system = whole.system};
  HostInfo host_info(host, log_.Sink(), {vosk_version_, core_version_, modules_});
  EXPECT_TRUE(host_info.GenerateHostInfoFile(kReport));
  EXPECT_THAT(host_.ReadFile(kReport),
              HasSubstr("8-Core Processor\n<Error: no processors>\n\n--- Graphics Hardware ---\n"));
  EXPECT_THAT(log_.Lines(), testing::Contains("[ERROR] Exception while writing the host info "
                                              "file: no processors"));
}

TEST(HostInfoSweep, AnyFailureLeavesAWholeReport) {
  support::SweepFaults([](support::SimulatedHost& host) {
    support::LogRecorder log(host);
    const std::string core_version = "2.14.3";
    const ProcessModules modules;
    HostInfo host_info(host.Bundle(), log.Sink(), {"3.3", core_version, modules});
    const bool written = host_info.GenerateHostInfoFile(kReport);
    const auto& fired = host.choke.faults.Fired();
    const bool unopened = !fired.empty() && fired[0].operation == "files.OpenTextForWriting";
    EXPECT_EQ(written, !unopened);
    if (unopened) return;
    const std::string report = host.ReadFile(kReport);
    EXPECT_TRUE(report.starts_with("--- VELDRAN Crash Report - Host Information ---\n"));
    EXPECT_TRUE(report.ends_with("network interface)\n" + std::string(45, '-') + "\n"));
    for (const char* heading :
         {"Operating System", "Hardware", "Graphics Hardware", "C++ Runtime Environment",
          "Network Interfaces", "NAT Status (Heuristic)"}) {
      EXPECT_THAT(report, HasSubstr(fmt::format("\n\n--- {} ---\n", heading)));
    }
  });
}

}  // namespace
}  // namespace vosk::report
