#include "report/host_info_rules.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "text/utf.h"

namespace vosk::report {
namespace {

constexpr std::uint32_t kIntel = 0x8086;
constexpr std::uint32_t kAmd = 0x1002;
constexpr std::uint32_t kNvidia = 0x10DE;
// Memory of its own from which on a graphics adapter of these makers is no part of the processor.
constexpr std::uint64_t kDiscreteMebibytes = 512;

constexpr std::uint32_t kLoopbackInterface = 24;
constexpr std::uint32_t kTunnelInterface = 131;
constexpr std::size_t kUsualPhysicalAddress = 6;

bool ContainsAny(std::span<const ProcessModule> modules,
                 std::initializer_list<std::string_view> beginnings) {
  return std::ranges::any_of(modules, [&](const ProcessModule& module) {
    const std::string name = text::ToLowerAscii(module.name);
    return std::ranges::any_of(
        beginnings, [&](std::string_view beginning) { return name.starts_with(beginning); });
  });
}

}  // namespace

std::string AdapterClass(const platform::GraphicsDescription& adapter) {
  const std::uint64_t video_memory = adapter.dedicated_video_memory >> 20;
  const bool small = video_memory < kDiscreteMebibytes;
  const bool radeon = adapter.name.find(u"Radeon") != std::u16string::npos;
  if ((adapter.flags & platform::kSoftwareGraphicsAdapter) != 0) return "Software Adapter";
  if (adapter.vendor_id == kIntel && small) return "Integrated Graphics (Intel)";
  if (adapter.vendor_id == kAmd && radeon && small) return "Integrated Graphics (AMD)";
  if (adapter.vendor_id == kAmd && radeon) return "Discrete GPU (AMD)";
  if (adapter.vendor_id == kNvidia) return "Discrete GPU (NVIDIA)";
  return video_memory == 0 ? "Integrated Graphics" : "Discrete GPU";
}

std::string FeatureLevelName(std::uint32_t level) {
  switch (level) {
    case 0x9100:
      return "DirectX 9.1";
    case 0x9200:
      return "DirectX 9.2";
    case 0x9300:
      return "DirectX 9.3";
    case 0xa000:
      return "DirectX 10.0";
    case 0xa100:
      return "DirectX 10.1";
    case 0xb000:
      return "DirectX 11.0";
    case 0xb100:
      return "DirectX 11.1";
    default:
      if (level < 0xb100) return "Unknown";
      return fmt::format("DirectX {}.{}", level >> 12, (level >> 8) & 0xf);
  }
}

std::string FormatLuid(const platform::LocallyUniqueId& luid) {
  return fmt::format("{:08x}:{:08x}", luid.high, luid.low);
}

bool IsPrivateIPv4(std::string_view text) {
  for (const std::string_view prefix : {"192.168.", "10.", "127.", "169.254."}) {
    if (text.starts_with(prefix)) return true;
  }
  constexpr std::string_view kSharedPrefix = "172.";
  if (!text.starts_with(kSharedPrefix)) return false;
  const std::string_view rest = text.substr(kSharedPrefix.size());
  const std::size_t dot = rest.find('.');
  if (dot == std::string_view::npos) return false;
  unsigned second = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + dot, second);
  return error == std::errc{} && end == rest.data() + dot && second >= 16 && second <= 31;
}

std::string InterfaceTypeName(std::uint32_t interface_type) {
  switch (interface_type) {
    case 1:
      return "Other";
    case 6:
      return "Ethernet";
    case 9:
      return "Token Ring";
    case 23:
      return "PPP";
    case kLoopbackInterface:
      return "Loopback";
    case 37:
      return "ATM";
    case 71:
      return "Wireless IEEE 802.11 (WiFi)";
    case kTunnelInterface:
      return "Tunnel";
    case 144:
      return "IEEE 1394 (FireWire)";
    default:
      return fmt::format("Unknown ({})", interface_type);
  }
}

std::string FormatPhysicalAddress(std::span<const std::uint8_t> address) {
  if (address.empty()) return "<N/A>";
  std::string text = fmt::format("{:02X}", fmt::join(address, "-"));
  if (address.size() != kUsualPhysicalAddress) text += fmt::format(" (Length: {})", address.size());
  return text;
}

bool IsLikelyBehindNat(std::span<const platform::NetworkAdapter> adapters) {
  return std::ranges::any_of(adapters, [](const platform::NetworkAdapter& adapter) {
    const bool leads_out = adapter.is_up && adapter.interface_type != kLoopbackInterface &&
                           adapter.interface_type != kTunnelInterface;
    return leads_out &&
           std::ranges::any_of(adapter.addresses, [](const platform::UnicastAddress& address) {
             return address.family == platform::AddressFamily::ipv4 && address.text &&
                    IsPrivateIPv4(*address.text);
           });
  });
}

bool IsRuntimeModule(std::string_view file_name) {
  const std::string name = text::ToLowerAscii(file_name);
  for (const std::string_view beginning :
       {"msvcp", "msvcr", "vcruntime", "ucrtbase", "api-ms-win-crt", "concrt", "vccorlib"}) {
    if (name.starts_with(beginning)) return true;
  }
  return name == "kernel32.dll" || name == "kernelbase.dll" || name == "ntdll.dll";
}

std::string DetectRuntime(std::span<const ProcessModule> modules) {
  if (ContainsAny(modules, {"msvcp140", "vcruntime140"})) {
    return "  Using: Visual C++ 2015-2022 Runtime";
  }
  if (ContainsAny(modules, {"msvcp120"})) return "  Using: Visual C++ 2013 Runtime";
  if (ContainsAny(modules, {"msvcp110"})) return "  Using: Visual C++ 2012 Runtime";
  if (ContainsAny(modules, {"msvcp100"})) return "  Using: Visual C++ 2010 Runtime";
  return "  Could not determine specific Visual C++ version from loaded modules";
}

std::string DotNetName(std::uint32_t release) {
  struct Row {
    std::uint32_t at_least;
    std::string_view name;
  };
  static constexpr std::array kRows{
      Row{533320, "4.8.1"}, Row{528040, "4.8"},   Row{461808, "4.7.2"}, Row{461308, "4.7.1"},
      Row{460798, "4.7"},   Row{394802, "4.6.2"}, Row{394254, "4.6.1"}, Row{393295, "4.6"},
      Row{379893, "4.5.2"}, Row{378675, "4.5.1"}, Row{378389, "4.5"},
  };
  const auto row = std::ranges::find_if(
      kRows, [&](const Row& candidate) { return release >= candidate.at_least; });
  return row == kRows.end() ? "4.x" : std::string(row->name);
}

bool IsOlderDotNetKey(std::string_view key) {
  if (key.size() < 2 || (key[0] != 'v' && key[0] != 'V')) return false;
  return key[1] >= '1' && key[1] <= '3';
}

std::string FormatFileVersion(const platform::FileVersion& version) {
  return fmt::format("{}", fmt::join(version, "."));
}

}  // namespace vosk::report
