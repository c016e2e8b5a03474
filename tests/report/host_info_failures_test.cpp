// What the host report cannot find out, it says.
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "report/host_info_sections.h"
#include "tests/report/host_info_scene.h"
#include "tests/support/stored_text.h"
#include "tests/support/sweep.h"

namespace vosk::report {
namespace {

using support::LogHas;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

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
  host_.PutFile(kHostInfoFile, std::string(100'000, 'x'));
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
  EXPECT_THAT(log_.Sink().RecentLogLines(),
              testing::Contains(
                  HasSubstr("Failed to write all of host info file: " + kHostInfoFile.string())));
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
  EXPECT_TRUE(host_info.GenerateHostInfoFile(kHostInfoFile));
  EXPECT_THAT(host_.ReadFile(kHostInfoFile),
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
    const bool written = host_info.GenerateHostInfoFile(kHostInfoFile);
    const auto& fired = host.choke.faults.Fired();
    const bool unopened = !fired.empty() && fired[0].operation == "files.OpenTextForWriting";
    EXPECT_EQ(written, !unopened);
    if (unopened) return;
    const std::string report = host.ReadFile(kHostInfoFile);
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
