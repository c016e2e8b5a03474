// Stores what the host report concludes as one text of inputs and results.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <map>

#include "report/host_info/graphics_rules.h"
#include "report/host_info/network_rules.h"
#include "report/host_info/runtime_rules.h"
#include "report/host_info/windows_rules.h"
#include "tests/support/stored_text.h"

namespace vosk::report {
namespace {

using platform::AddressFamily;
using platform::NetworkAdapter;
using Names = std::vector<std::string>;
using Numbers = std::vector<std::uint32_t>;

class HostInfoRules : public testing::Test {
 protected:
  // Adds a line for each input.
  template <typename Given, typename Rule>
  void List(const std::string& title, const std::vector<Given>& all, Rule rule,
            const char* form = "{}") {
    text_ += title + '\n';
    for (const Given& given : all) {
      text_ += fmt::format("  {:<32} {}\n", fmt::format(fmt::runtime(form), given), rule(given));
    }
    text_ += '\n';
  }

  void ListGraphics() {
    const auto adapter = [](const Numbers& row) {
      return AdapterClass({.name = row[3] == 1 ? u"AMD Radeon" : u"AMD radeon",
                           .vendor_id = row[0],
                           .dedicated_video_memory = row[1],
                           .flags = row[2]});
    };
    constexpr std::uint32_t kDiscrete = 512u << 20;
    List<Numbers>("Graphics adapter: vendor, bytes of its own, flags, whether a Radeon",
                  {{0x1414, 0, 2, 0},
                   {0x10DE, kDiscrete, 3, 0},
                   {0x8086, 0, 0, 0},
                   {0x8086, kDiscrete - 1, 1, 0},
                   {0x8086, kDiscrete, 0, 0},
                   {0x1002, kDiscrete - 1, 0, 1},
                   {0x1002, kDiscrete, 0, 1},
                   {0x1002, kDiscrete, 0, 0},
                   {0x1002, 0, 0, 0},
                   {0x10DE, 0, 0, 0},
                   {0x1414, 0, 0, 1},
                   {0x5143, (1 << 20) - 1, 0, 0},
                   {0x5143, 1 << 20, 0, 0}},
                  adapter, "{::#x}");
    List<std::uint32_t>("Feature level",
                        {0x9100, 0x9200, 0x9300, 0xa000, 0xa100, 0xb000, 0xb100, 0xc000, 0xc200,
                         0xd000, 0, 0x9000, 0xa200},
                        FeatureLevelName, "{:#x}");
    List<std::uint32_t>("Locally unique identifier", {0xd1f2, 0x80000000}, [](std::uint32_t low) {
      return FormatLuid({0x1f, low});
    });
  }

  void ListAddresses() {
    List<Names::value_type>("Private address",
                            {"10.0.0.1",
                             "127.0.0.1",
                             "169.254.3.4",
                             "192.168.0.1",
                             "172.16.0.1",
                             "172.31.255.255",
                             "",
                             "1.10.0.1",
                             "11.0.0.1",
                             "126.1.1.1",
                             "128.0.0.1",
                             "169.253.1.1",
                             "192.16.8.1",
                             "192.169.0.1",
                             "172.15.0.1",
                             "172.32.0.1",
                             "172.",
                             "172.16",
                             "172..0.1",
                             "172.x.0.1",
                             "172.16x.0.1",
                             "172.-16.0.1",
                             "172. 16.0.1",
                             "fe80::1",
                             "172.99999999999999999999.0.1"},
                            IsPrivateIPv4);
    const std::uint8_t bytes[] = {0x00, 0x1a, 0xff, 0x09, 0xb0, 0x0c, 0x11, 0x22};
    List<std::size_t>("Physical address of so many bytes", {0, 1, 6, 8}, [&](std::size_t size) {
      return FormatPhysicalAddress({bytes, size});
    });
    List<std::uint32_t>("Interface type", {0, 1, 6, 9, 23, 24, 37, 53, 71, 131, 144},
                        InterfaceTypeName);
    const auto private_or_not = [](const Numbers& row) {
      const NetworkAdapter adapters[] = {
          {.is_up = true,
           .interface_type = 6,
           .addresses = {{AddressFamily::ipv4, tl::unexpected(platform::ErrorCode{10022})},
                         {AddressFamily::ipv6, "10.is.no.ipv4"}}},
          {.is_up = row[0] == 1,
           .interface_type = row[1],
           .addresses = {{AddressFamily::ipv4, row[2] == 1 ? "10.0.0.1" : "11.0.0.1"}}}};
      return IsLikelyBehindNat(adapters);
    };
    List<Numbers>("Behind a router: whether up, interface type, whether private",
                  {{1, 6, 1}, {0, 6, 1}, {1, 24, 1}, {1, 131, 1}, {1, 6, 0}}, private_or_not);
  }

  void ListRuntimes() {
    List<Names::value_type>(
        "Runtime module",
        {"MSVCP140.dll", "msvcr120.dll", "VCRUNTIME140_1.dll", "ucrtbased.dll",
         "api-ms-win-crt-heap-l1-1-0.dll", "concrt140.dll", "vccorlib140.dll", "KERNEL32.DLL",
         "KernelBase.dll", "ntdll.dll", "msvcrt", "", "user32.dll", "kernel32.dll.mui",
         "ntdll.dll2", "my-msvcp140.dll", "api-ms-win-core-file-l1-1-0.dll"},
        IsRuntimeModule);
    const auto detect = [](const Names& names) {
      ProcessModules modules;
      for (const std::string& name : names) modules.push_back({name, {}, {}});
      return DetectRuntime(modules);
    };
    List<Names>("Runtime among modules",
                {{"msvcp100.dll", "MSVCP140.dll"},
                 {"msvcp120.dll", "vcruntime140_1.dll"},
                 {"msvcp110.dll", "msvcp120.dll"},
                 {"msvcp100.dll", "MSVCP110.DLL"},
                 {"ntdll.dll", "msvcp100.dll"},
                 {"msvcr120.dll", "ntdll.dll"},
                 {}},
                detect);
    List<std::uint32_t>(
        ".NET release",
        {378388, 378389, 378674, 378675, 379892, 379893, 393294, 393295, 394253, 394254, 394801,
         394802, 460797, 460798, 461307, 461308, 461807, 461808, 528039, 528040, 533319, 533320},
        DotNetName);
    List<Names::value_type>("Older .NET",
                            {"v1.1.4322", "v2.0.50727", "v3.5", "V3.5", "", "v", "v0", "v4", "v4.0",
                             "x3.0", "3.5", "vNext"},
                            IsOlderDotNetKey);
  }

  void ListWindows() {
    const auto name = [](const Numbers& row) {
      return WindowsName({.major = row[0],
                          .minor = row[1],
                          .build = row[2],
                          .product_type = row[3],
                          .service_pack = {}});
    };
    List<Numbers>("Windows: version, product type",
                  {{10, 0, 22000, 1}, {10, 0, 21999, 1}, {6, 3, 9600, 1},   {6, 2, 9200, 1},
                   {6, 1, 7601, 1},   {6, 0, 6002, 1},   {5, 1, 2600, 1},   {10, 1, 30000, 1},
                   {11, 0, 30000, 1}, {10, 0, 20348, 2}, {10, 0, 20347, 3}, {10, 0, 17763, 3},
                   {10, 0, 17762, 2}, {10, 0, 14393, 3}, {10, 0, 14392, 3}, {6, 3, 9600, 3},
                   {6, 2, 9200, 2},   {6, 1, 7601, 3},   {6, 0, 6002, 3},   {10, 0, 22000, 0}},
                  name);
    List<std::uint32_t>(
        "Product type, and an edition of it", {0, 1, 2, 3, 255},
        [](std::uint32_t type) { return ProductTypeName(type) + WindowsEdition(type, 0x08); });
    for (const std::uint32_t type : {1, 3}) {
      std::map<std::string, Names> codes;
      for (std::uint32_t code = 0; code < 0x200; ++code) {
        const std::string edition = WindowsEdition(type, code);
        if (!edition.starts_with(" Unknown")) codes[edition].push_back(fmt::format("{:x}", code));
      }
      for (const auto& [edition, known] : codes) {
        text_ += fmt::format("Product type {},{}: {}\n", type, edition, fmt::join(known, " "));
      }
    }
  }

  std::string text_;
};

TEST_F(HostInfoRules, ConcludeWhatIsStored) {
  ListGraphics();
  ListAddresses();
  ListRuntimes();
  ListWindows();
  support::ExpectStoredText("report/host_info_rules.txt", text_);
}

}  // namespace
}  // namespace vosk::report
