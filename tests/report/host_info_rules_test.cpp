#include "report/host_info_rules.h"

#include <gtest/gtest.h>

#include <limits>

namespace vosk::report {
namespace {

using platform::AddressFamily;
using platform::GraphicsDescription;
using platform::NetworkAdapter;
using platform::WindowsVersion;

TEST(HostInfoRules, AdaptersHaveAClass) {
  struct Row {
    std::uint32_t vendor;
    const char16_t* name;
    std::uint64_t mebibytes;
    std::uint32_t flags;
    const char* expected;
  };
  constexpr Row kRows[] = {
      {0x1414, u"Microsoft Basic Render Driver", 0, 2, "Software Adapter"},
      {0x10DE, u"NVIDIA GeForce", 8192, 2, "Software Adapter"},
      {0x8086, u"Intel(R) UHD Graphics", 4096, 3, "Software Adapter"},
      {0x8086, u"Intel(R) UHD Graphics", 0, 0, "Integrated Graphics (Intel)"},
      {0x8086, u"Intel(R) UHD Graphics", 511, 0, "Integrated Graphics (Intel)"},
      {0x8086, u"Intel(R) UHD Graphics", 511, 1, "Integrated Graphics (Intel)"},  // remote
      {0x8086, u"Intel(R) Arc(TM) A770", 512, 0, "Discrete GPU"},
      {0x1002, u"AMD Radeon(TM) Graphics", 511, 0, "Integrated Graphics (AMD)"},
      {0x1002, u"AMD Radeon RX 6600", 512, 0, "Discrete GPU (AMD)"},
      {0x1002, u"AMD radeon", 2048, 0, "Discrete GPU"},
      {0x1002, u"AMD FirePro W4100", 2048, 0, "Discrete GPU"},
      {0x1002, u"AMD FirePro W4100", 0, 0, "Integrated Graphics"},
      {0x10DE, u"NVIDIA GeForce", 0, 0, "Discrete GPU (NVIDIA)"},
      {0x1414, u"Radeon in name only", 0, 0, "Integrated Graphics"},
      {0x5143, u"Adreno", 1, 0, "Discrete GPU"},
      {0x15AD, u"VMware SVGA 3D", 0, 0, "Integrated Graphics"},
  };
  for (const Row& row : kRows) {
    const GraphicsDescription adapter{.name = row.name,
                                      .vendor_id = row.vendor,
                                      .dedicated_video_memory = row.mebibytes << 20,
                                      .flags = row.flags};
    EXPECT_EQ(AdapterClass(adapter), row.expected)
        << std::hex << row.vendor << ' ' << std::dec << row.mebibytes << ' ' << row.flags;
  }
}

TEST(HostInfoRules, VideoMemoryIsJudgedInWholeMebibytes) {
  GraphicsDescription adapter{.name = u"Intel", .vendor_id = 0x8086};
  adapter.dedicated_video_memory = (512ull << 20) - 1;
  EXPECT_EQ(AdapterClass(adapter), "Integrated Graphics (Intel)");
  adapter.vendor_id = 0x5143;
  adapter.dedicated_video_memory = (1ull << 20) - 1;
  EXPECT_EQ(AdapterClass(adapter), "Integrated Graphics");
}

TEST(HostInfoRules, FeatureLevelsHaveNames) {
  const std::pair<std::uint32_t, const char*> rows[] = {
      {0x9100, "DirectX 9.1"},  {0x9200, "DirectX 9.2"},  {0x9300, "DirectX 9.3"},
      {0xa000, "DirectX 10.0"}, {0xa100, "DirectX 10.1"}, {0xb000, "DirectX 11.0"},
      {0xb100, "DirectX 11.1"}, {0xc000, "DirectX 12.0"}, {0xc100, "DirectX 12.1"},
      {0xc200, "DirectX 12.2"}, {0xd000, "DirectX 13.0"}, {0, "Unknown"},
      {0x1000, "Unknown"},      {0x9000, "Unknown"},      {0xa200, "Unknown"}};
  for (const auto& [level, name] : rows) {
    EXPECT_EQ(FeatureLevelName(level), name) << std::hex << level;
  }
}

TEST(HostInfoRules, PrivateAddresses) {
  for (const char* text : {"10.0.0.1", "10.255.255.255", "127.0.0.1", "169.254.3.4", "192.168.0.1",
                           "172.16.0.1", "172.20.1.1", "172.31.255.255"}) {
    EXPECT_TRUE(IsPrivateIPv4(text)) << text;
  }
  for (const char* text : {"",
                           "1.10.0.1",
                           "11.0.0.1",
                           "100.64.0.1",
                           "126.1.1.1",
                           "128.0.0.1",
                           "169.253.1.1",
                           "192.169.0.1",
                           "192.16.8.1",
                           "172.15.0.1",
                           "172.32.0.1",
                           "172.",
                           "172.16",
                           "172..0.1",
                           "172.x.0.1",
                           "172.16x.0.1",
                           "172.-16.0.1",
                           "172. 16.0.1",
                           "172.99999999999999999999.0.1",
                           "8.8.8.8",
                           "fe80::1"}) {
    EXPECT_FALSE(IsPrivateIPv4(text)) << text;
  }
}

TEST(HostInfoRules, PhysicalAddresses) {
  const std::uint8_t bytes[] = {0x00, 0x1a, 0xff, 0x09, 0xb0, 0x0c, 0x11, 0x22};
  EXPECT_EQ(FormatPhysicalAddress({bytes, 0}), "<N/A>");
  EXPECT_EQ(FormatPhysicalAddress({bytes, 6}), "00-1A-FF-09-B0-0C");
  EXPECT_EQ(FormatPhysicalAddress({bytes, 1}), "00 (Length: 1)");
  EXPECT_EQ(FormatPhysicalAddress({bytes, 8}), "00-1A-FF-09-B0-0C-11-22 (Length: 8)");
}

TEST(HostInfoRules, LocallyUniqueIdsKeepTheirWidth) {
  EXPECT_EQ(FormatLuid({0, 0xd1f2}), "00000000:0000d1f2");
  EXPECT_EQ(FormatLuid({0xffffffff, 0x80000000}), "ffffffff:80000000");
}

TEST(HostInfoRules, InterfaceTypesHaveNames) {
  const std::pair<std::uint32_t, const char*> rows[] = {{1, "Other"},
                                                        {6, "Ethernet"},
                                                        {9, "Token Ring"},
                                                        {23, "PPP"},
                                                        {24, "Loopback"},
                                                        {37, "ATM"},
                                                        {131, "Tunnel"},
                                                        {53, "Unknown (53)"},
                                                        {71, "Wireless IEEE 802.11 (WiFi)"},
                                                        {0, "Unknown (0)"},
                                                        {144, "IEEE 1394 (FireWire)"}};
  for (const auto& [type, name] : rows) EXPECT_EQ(InterfaceTypeName(type), name);
}

TEST(HostInfoRules, OnlyAnAdapterThatLeadsOutTellsOfNat) {
  const auto adapter = [](bool up, std::uint32_t type, const char* address) {
    return NetworkAdapter{.is_up = up,
                          .interface_type = type,
                          .addresses = {{AddressFamily::ipv4, std::string(address)}}};
  };
  const NetworkAdapter behind_router = adapter(true, 6, "192.168.1.20");
  const NetworkAdapter harmless[] = {
      adapter(true, 24, "127.0.0.1"),
      adapter(true, 131, "10.8.0.2"),
      adapter(false, 6, "192.168.1.20"),
      adapter(true, 6, "203.0.113.7"),
      {.is_up = true, .interface_type = 6},
      {.is_up = true,
       .interface_type = 6,
       .addresses = {{AddressFamily::ipv4, tl::unexpected(platform::ErrorCode{10022})},
                     {AddressFamily::ipv6, "10.is.no.ipv4"}}}};
  EXPECT_FALSE(IsLikelyBehindNat({}));
  EXPECT_FALSE(IsLikelyBehindNat(harmless));
  std::vector<NetworkAdapter> all(std::begin(harmless), std::end(harmless));
  all.push_back(behind_router);
  EXPECT_TRUE(IsLikelyBehindNat(all));
}

TEST(HostInfoRules, RuntimeModulesAreToldByTheirNames) {
  for (const char* name :
       {"MSVCP140.dll", "msvcr120.dll", "VCRUNTIME140_1.dll", "ucrtbase.dll", "ucrtbased.dll",
        "api-ms-win-crt-heap-l1-1-0.dll", "concrt140.dll", "vccorlib140.dll", "KERNEL32.DLL",
        "KernelBase.dll", "ntdll.dll", "msvcp_win.dll"}) {
    EXPECT_TRUE(IsRuntimeModule(name)) << name;
  }
  for (const char* name : {"", "user32.dll", "kernel32.dll.mui", "kernel32", "ntdll.dll2",
                           "my-msvcp140.dll", "api-ms-win-core-file-l1-1-0.dll", "msvcrt"}) {
    EXPECT_EQ(IsRuntimeModule(name), std::string_view(name) == "msvcrt") << name;
  }
}

TEST(HostInfoRules, TheRuntimeIsTheNewestAmongTheModules) {
  const auto detect = [](std::initializer_list<const char*> names) {
    ProcessModules modules;
    for (const char* name : names) modules.push_back({name, {}, {}});
    return DetectRuntime(modules);
  };
  constexpr auto kUnknown = "  Could not determine specific Visual C++ version from loaded modules";
  EXPECT_EQ(detect({"msvcp100.dll", "MSVCP140.dll"}), "  Using: Visual C++ 2015-2022 Runtime");
  EXPECT_EQ(detect({"msvcp120.dll", "VCRUNTIME140_1.dll"}),
            "  Using: Visual C++ 2015-2022 Runtime");
  EXPECT_EQ(detect({"msvcp110.dll", "msvcp120.dll"}), "  Using: Visual C++ 2013 Runtime");
  EXPECT_EQ(detect({"msvcp100.dll", "MSVCP110.DLL"}), "  Using: Visual C++ 2012 Runtime");
  EXPECT_EQ(detect({"ntdll.dll", "msvcp100.dll"}), "  Using: Visual C++ 2010 Runtime");
  EXPECT_EQ(detect({"msvcr120.dll", "ntdll.dll"}), kUnknown);
  EXPECT_EQ(detect({}), kUnknown);
}

TEST(HostInfoRules, DotNetReleasesHaveNames) {
  const std::pair<std::uint32_t, const char*> first_releases[] = {
      {378389, "4.5"},   {378675, "4.5.1"}, {379893, "4.5.2"}, {393295, "4.6"},
      {394254, "4.6.1"}, {394802, "4.6.2"}, {460798, "4.7"},   {461308, "4.7.1"},
      {461808, "4.7.2"}, {528040, "4.8"},   {533320, "4.8.1"}};
  std::string before = "4.x";
  for (const auto& [release, name] : first_releases) {
    EXPECT_EQ(DotNetName(release - 1), before) << release - 1;
    EXPECT_EQ(DotNetName(release), name) << release;
    before = name;
  }
  EXPECT_EQ(DotNetName(0), "4.x");
  EXPECT_EQ(DotNetName(std::numeric_limits<std::uint32_t>::max()), "4.8.1");
}

TEST(HostInfoRules, OlderDotNetKeys) {
  for (const char* key : {"v1.1.4322", "v2.0.50727", "v3.0", "v3.5", "V3.5"}) {
    EXPECT_TRUE(IsOlderDotNetKey(key)) << key;
  }
  for (const char* key : {"", "v", "v4", "v4.0", "CDF", "3.5", "vNext", "v9"}) {
    EXPECT_FALSE(IsOlderDotNetKey(key)) << key;
  }
}

TEST(HostInfoRules, WindowsHasAName) {
  struct Row {
    std::uint32_t major, minor, build, product_type;
    const char* expected;
  };
  constexpr Row kRows[] = {
      {10, 0, 22000, 1, "Windows 11"},
      {10, 0, 21999, 1, "Windows 10"},
      {10, 0, 10240, 1, "Windows 10"},
      {6, 3, 9600, 1, "Windows 8.1"},
      {6, 2, 9200, 1, "Windows 8"},
      {6, 1, 7601, 1, "Windows 7"},
      {6, 0, 6002, 1, "Windows Vista"},
      {5, 1, 2600, 1, "Unknown"},
      {10, 1, 30000, 1, "Unknown"},
      {11, 0, 30000, 1, "Unknown"},
      {10, 0, 26100, 3, "Windows Server 2022"},
      {10, 0, 20348, 2, "Windows Server 2022"},
      {10, 0, 20347, 3, "Windows Server 2019"},
      {10, 0, 17763, 3, "Windows Server 2019"},
      {10, 0, 17762, 2, "Windows Server 2016"},
      {10, 0, 14393, 3, "Windows Server 2016"},
      {10, 0, 14392, 3, "Windows Server (Unknown version)"},
      {6, 3, 9600, 3, "Windows Server 2012 R2"},
      {6, 2, 9200, 2, "Windows Server 2012"},
      {6, 1, 7601, 3, "Windows Server 2008 R2"},
      {6, 0, 6002, 3, "Windows Server 2008"},
      {5, 2, 3790, 3, "Unknown"},
      {10, 0, 22000, 0, "Unknown"},
  };
  for (const Row& row : kRows) {
    const WindowsVersion version{.major = row.major,
                                 .minor = row.minor,
                                 .build = row.build,
                                 .product_type = row.product_type,
                                 .service_pack = {}};
    EXPECT_EQ(WindowsName(version), row.expected)
        << row.major << '.' << row.minor << '.' << row.build << " type " << row.product_type;
  }
}

TEST(HostInfoRules, EditionsAreWordsWithABlank) {
  struct Row {
    std::uint32_t product_type, code;
    const char* expected;
  };
  constexpr Row kRows[] = {
      {1, 0x30, " Pro"},
      {1, 0x31, " Pro"},
      {1, 0xA1, " Pro"},
      {1, 0x65, " Home"},
      {1, 0x64, " Home"},
      {1, 0x03, " Home"},
      {1, 0x04, " Enterprise"},
      {1, 0x7D, " Enterprise"},
      {1, 0xAF, " Enterprise"},
      {1, 0x79, " Education"},
      {1, 0x7A, " Education"},
      {1, 0x01, " Unknown (0x1)"},
      {1, 0x08, " Unknown (0x8)"},
      {3, 0x08, " Datacenter"},
      {2, 0x0C, " Datacenter"},
      {3, 0x197, " Datacenter"},
      {3, 0x0A, " Enterprise"},
      {2, 0x0E, " Enterprise"},
      {3, 0x07, " Standard"},
      {2, 0x0D, " Standard"},
      {3, 0x4F, " Standard"},
      {3, 0x30, " Unknown (0x30)"},
      {3, 0xabcdabcd, " Unknown (0xabcdabcd)"},
  };
  for (const Row& row : kRows) {
    EXPECT_EQ(WindowsEdition(row.product_type, row.code), row.expected)
        << row.product_type << std::hex << " 0x" << row.code;
  }
  EXPECT_EQ(ProductTypeName(1), "Workstation");
  EXPECT_EQ(ProductTypeName(2), "Domain Controller");
  EXPECT_EQ(ProductTypeName(3), "Server");
  EXPECT_EQ(ProductTypeName(0), "Unknown (0)");
  EXPECT_EQ(ProductTypeName(255), "Unknown (255)");
}

}  // namespace
}  // namespace vosk::report
