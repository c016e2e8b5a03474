#include "report/host_info/network_rules.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace vosk::report {
namespace {

constexpr std::uint32_t kLoopbackInterface = 24;
constexpr std::uint32_t kTunnelInterface = 131;
constexpr std::size_t kUsualPhysicalAddress = 6;

}  // namespace

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

}  // namespace vosk::report
