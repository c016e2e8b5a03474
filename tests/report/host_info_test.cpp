#include "report/host_info/host_info.h"

#include <gmock/gmock.h>

#include <limits>
#include <sstream>
#include <stdexcept>

#include "report/host_info/graphics_rules.h"
#include "report/host_info/head.h"
#include "report/host_info/network.h"
#include "report/host_info/runtime.h"
#include "report/host_info/system.h"
#include "report/host_info/windows_version.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"
#include "tests/support/stored_text.h"
#include "tests/support/transcript.h"

namespace vosk::report {
namespace {

using platform::AddressFamily;
using platform::NetworkAdapter;
using support::SimulatedHost;
using testing::HasSubstr;

const std::filesystem::path kHostInfoFile = "C:/Users/op/hostInfo.txt";
const std::string kWindowsKey = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)";
const std::string kProcessorKey = R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)";
const ProcessModules kModules = {
    {"kernel32.dll", "C:/Windows/System32/kernel32.dll", "10.0.22621.2506"},
    {"msvcp140.dll", "C:/Windows/System32/msvcp140.dll", "14.38.33135.0"}};

void InstallRuntimes(SimulatedHost& host) {
  support::SimRegistry& registry = host.registry;
  const std::string visual_studio = R"(SOFTWARE\Microsoft\VisualStudio\)";
  registry.PutNumber(visual_studio + R"(14.0\VC\Runtimes\x64)", "Installed", 1);
  registry.PutText(visual_studio + R"(14.0\VC\Runtimes\x64)", "Version", "v14.38.33135.00");
  registry.PutNumber(visual_studio + R"(10.0\VC\VCRedist\x86)", "Installed", 1);
  registry.PutNumber(visual_studio + R"(12.0\VC\Runtimes\x64)", "Installed", 0);
  const std::string dot_net = R"(SOFTWARE\Microsoft\NET Framework Setup\NDP\)";
  registry.PutNumber(dot_net + "v3.5", "Install", 1);
  registry.PutNumber(dot_net + "v2.0.50727", "Install", 1);
  registry.PutNumber(dot_net + "v3.0", "Install", 0);
  registry.PutNumber(dot_net + R"(CDF\v4.0)", "Install", 1);
  registry.PutNumber(dot_net + R"(v4\Full)", "Install", 1);
  registry.PutNumber(dot_net + R"(v4\Full)", "Release", 533320);
  for (const char* name : {"msvcp140.dll", "ucrtbase.dll", "user32.dll", "msvcr110.dll"}) {
    host.PutFile(host.machine.system_directory / name, "MZ");
  }
  const std::filesystem::path system = host.machine.system_directory;
  host.machine.file_versions = {{system / "msvcp140.dll", {14, 38, 33135, 0}},
                                {system / "ucrtbase.dll", {10, 0, 22621, 2506}}};
}

void InstallWorkstation(SimulatedHost& host) {
  host.registry.PutText(kWindowsKey, "ProductName", "Windows 11 Pro");
  host.registry.PutText(kWindowsKey, "DisplayVersion", "23H2");
  host.registry.PutText(kWindowsKey, "CurrentVersion", "6.3");
  host.registry.PutText(kWindowsKey, "CurrentBuildNumber", "22631");
  host.registry.PutNumber(kWindowsKey, "UBR", 3155);
  host.registry.PutText(kProcessorKey, "ProcessorNameString", "AMD Ryzen 7 5800X");
  InstallRuntimes(host);
}

// Returns the report as it is in its file.
std::string Report(SimulatedHost& host, console::LogSink& log, const std::string& core_version,
                   const ProcessModules& modules, const std::string& vosk_version = "3.3") {
  HostInfo host_info(host.Bundle(), log, {vosk_version, core_version, modules});
  if (!host_info.GenerateHostInfoFile(kHostInfoFile)) return "no report";
  return host.ReadFile(kHostInfoFile);
}

using Sections = std::function<void(const SectionContext&, HostInfo&)>;

// Stores what the sections say about a workstation, whatever fails.
void ExpectSections(const char* file, const Sections& write) {
  support::ExpectFaultTranscript(
      file, {.arrange = InstallWorkstation, .act = [&](SimulatedHost& host, console::LogSink& log) {
               const std::string version;
               HostInfo host_info(host.Bundle(), log, {"3.3", version, kModules});
               std::ostringstream out;
               write({out, log, host.files, host.machine, host.registry, host.system}, host_info);
               return out.str();
             }});
}

TEST(HostInfoSections, TellOfTheMachineWhateverFails) {
  ExpectSections("report/host_reports/machine_faults.txt",
                 [](const SectionContext& context, HostInfo& host_info) {
                   WriteHostname(context);
                   WriteOperatingSystem(context);
                   WriteHardware(context);
                   host_info.EnumerateGPUs(context.out);
                   WriteNatStatus(context, WriteNetworkInterfaces(context));
                 });
}

TEST(HostInfoSections, TellOfTheRuntimeWhateverFails) {
  ExpectSections("report/host_reports/runtime_faults.txt",
                 [](const SectionContext& context, HostInfo&) {
                   WriteRedistributables(context);
                   WriteRuntimeLibraries(context);
                   WriteDotNetVersions(context);
                   WriteWindowsVersion(context);
                 });
}

class HostInfoTest : public testing::Test {
 protected:
  // Returns a report and what was logged about it.
  std::string ReportAndLog(const std::string& core_version, const ProcessModules& modules,
                           const std::string& vosk_version) {
    std::string text = Report(host_, log_.Sink(), core_version, modules, vosk_version) + '\n';
    for (const std::string& line : log_.Lines()) text += line + '\n';
    return text;
  }

  support::CheckedHost host_;
  support::LogRecorder log_{host_};
};

// The machine has no graphics, nothing installed, no versions, and a list of network adapters that
// grows faster than the buffer for it.
TEST_F(HostInfoTest, ABareDomainController) {
  host_.registry.PutNumber(kWindowsKey, "ProductName", 7);
  host_.registry.PutText(kWindowsKey, "UBR", "3155");
  host_.registry.PutKey(kProcessorKey);
  host_.machine.graphics.clear();
  host_.machine.bytes_for_adapter = 9000;
  host_.machine.growth_between_calls = 600;
  host_.machine.windows = {.major = 10,
                           .minor = 0,
                           .build = 14393,
                           .product_type = platform::kDomainController,
                           .service_pack = u"Service Pack 1"};
  host_.machine.product_code = 0x0C;
  support::ExpectStoredText("report/host_reports/bare_domain_controller.txt",
                            ReportAndLog("0.0.0", {}, ""));
}

NetworkAdapter UnusualAdapter(std::uint32_t index) {
  NetworkAdapter adapter = support::EthernetAdapter(index, u"Büro – 事務所", "203.0.113.9");
  switch (index) {
    case 1:
      adapter.friendly_name.reset();
      adapter.addresses.clear();
      break;
    case 2:
      adapter.interface_type = 71;
      adapter.is_up = false;
      adapter.physical_address.resize(8);
      break;
    case 3:
      adapter.interface_type = 243;
      adapter.friendly_name = u"half a pair \xd83d";
      adapter.physical_address.clear();
      adapter.addresses = {{AddressFamily::ipv4, tl::unexpected(platform::ErrorCode{10022})},
                           {AddressFamily::ipv6, tl::unexpected(platform::ErrorCode{10047})},
                           {AddressFamily::ipv6, "2001:db8::7"}};
      break;
    default:
      break;
  }
  return adapter;
}

// The machine has several kinds of graphics and network adapters, and names that are not ASCII.
TEST_F(HostInfoTest, AMachineWithManyAdapters) {
  InstallWorkstation(host_);
  host_.PutFile(kHostInfoFile, std::string(100'000, 'x'));  // an old report
  host_.system.computer_name = "rig-Zürich-東京";
  host_.machine.graphics.clear();
  const auto add = [&](std::u16string name, std::uint32_t vendor,
                       std::optional<std::uint32_t> feature_level, std::uint32_t flags) {
    host_.machine.graphics.push_back({{.name = std::move(name),
                                       .vendor_id = vendor,
                                       .dedicated_video_memory = 511ull << 20,
                                       .luid = {1, 0x4000},
                                       .flags = flags},
                                      feature_level});
  };
  add(u"Intel(R) Arc™ A380", 0x8086, 0xa100, 0);
  add(u"NVIDIA GeForce RTX 4090", 0x10DE, std::nullopt, 0);
  add(u"Microsoft Basic Render Driver", 0x1414, 0xb100, platform::kSoftwareGraphicsAdapter);
  host_.machine.network = {UnusualAdapter(4), UnusualAdapter(3), UnusualAdapter(2),
                           UnusualAdapter(1)};
  host_.machine.bytes_for_adapter = 6000;
  support::ExpectStoredText("report/host_reports/many_adapters.txt", ReportAndLog("", {}, "3.3"));
}

TEST_F(HostInfoTest, FeatureLevelsAreTriedDownToTheOldest) {
  for (const std::uint32_t level :
       {0xc100, 0xc000, 0xb100, 0xb000, 0xa100, 0xa000, 0x9300, 0x9200, 0x9100, 0}) {
    host_.machine.newest_feature_level = level;
    host_.machine.graphics[0].feature_level = level;
    EXPECT_THAT(Report(host_, log_.Sink(), "", {}),
                HasSubstr("Feature Level:  " + FeatureLevelName(level) + '\n'));
  }
}

TEST_F(HostInfoTest, ATimeThatCannotBeConvertedIsSaidToBeSo) {
  std::ostringstream out;
  const SectionContext context{out,           log_.Sink(),    host_.files,
                               host_.machine, host_.registry, host_.system};
  WriteTimes(context, std::numeric_limits<std::time_t>::max(), host_.clock.LocalNow());
  EXPECT_THAT(out.str(), testing::MatchesRegex("Report Generated \\(UTC\\): <Error converting "
                                               "time: .+>\nLocal Time:           2025.+\n"));
  EXPECT_THAT(
      log_.Lines(),
      testing::ElementsAre(testing::StartsWith("[ERROR] Failed to convert the current time: ")));
}

TEST_F(HostInfoTest, AFileThatCannotBeWrittenIsTold) {
  host_.FailNext("files.OpenTextForWriting", 13);
  EXPECT_EQ(Report(host_, log_.Sink(), "", {}), "no report");
  EXPECT_THAT(log_.Lines(),
              support::LogIs({"[INFO] Generating host info file: C:/Users/op/hostInfo.txt",
                              "[ERROR] Failed to open host info file for writing: "
                              "C:/Users/op/hostInfo.txt. Errno: 13"}));
  host_.files.disk_full = true;
  EXPECT_EQ(Report(host_, log_.Sink(), "", {}), "");
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
  ThrowingMachine machine(host_.choke);
  const std::string version;
  HostInfo host_info({host_.clock, host_.console, host_.dump_writer, host_.files, host_.installer,
                      machine, host_.processes, host_.registry, host_.system},
                     log_.Sink(), {"3.3", version, kModules});
  EXPECT_TRUE(host_info.GenerateHostInfoFile(kHostInfoFile));
  EXPECT_THAT(host_.ReadFile(kHostInfoFile),
              HasSubstr("\n<Error: no processors>\n\n--- Graphics Hardware ---\n"));
  EXPECT_THAT(log_.Lines(), testing::Contains("[ERROR] Exception while writing the host info "
                                              "file: no processors"));
}

}  // namespace
}  // namespace vosk::report
