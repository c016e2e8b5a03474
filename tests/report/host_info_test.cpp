#include <algorithm>
#include <sstream>

#include "tests/report/host_info_scene.h"
#include "tests/support/stored_text.h"

namespace vosk::report {
namespace {

using platform::AddressFamily;
using platform::NetworkAdapter;
using support::LogHas;
using support::SimGraphicsAdapter;

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

}  // namespace
}  // namespace vosk::report
