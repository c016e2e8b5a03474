#include "report/host_info/network.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>

#include "report/host_info/network_rules.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

using platform::AddressFamily;
using platform::NetworkAdapter;
using platform::UnicastAddress;
using AdapterList = std::vector<NetworkAdapter>;

constexpr std::uint32_t kFirstBufferBytes = 15'000;
constexpr int kMostCalls = 3;

platform::Result<AdapterList> ListAdapters(platform::NetworkSession& network,
                                           console::LogSink& log) {
  std::uint32_t size = kFirstBufferBytes;
  auto adapters = network.Adapters(size);
  for (int attempt = 1; attempt < kMostCalls && !adapters; ++attempt) {
    if (adapters.error() != platform::kBufferOverflow) break;
    log.LogInfo("GetAdaptersAddresses buffer overflow, resizing to {} bytes (Attempt {})", size,
                attempt);
    adapters = network.Adapters(size);
  }
  return adapters;
}

void WriteIPv4(const SectionContext& context, const platform::Result<std::string>& address) {
  if (!address) {
    context.log.LogError("Failed to convert an IPv4 address: {}", address.error());
    fmt::print(context.out, "    - IPv4: <Address Conversion Error: {}>\n", address.error());
    return;
  }
  fmt::print(context.out, "    - IPv4: {}{}\n", *address,
             IsPrivateIPv4(*address) ? " (Private Range)" : "");
}

void WriteIPv6(const SectionContext& context, const platform::Result<std::string>& address) {
  if (!address) {
    context.log.LogError("Failed to convert an IPv6 address: {}", address.error());
    fmt::print(context.out, "    - IPv6: <Address Conversion Error: {}>\n", address.error());
    return;
  }
  fmt::print(context.out, "    - IPv6: {}{}\n", *address,
             address->starts_with("fe80:") ? " (Link-Local)" : "");
}

void WriteAdapter(const SectionContext& context, const NetworkAdapter& adapter) {
  fmt::print(context.out, "Adapter: {}\n",
             adapter.friendly_name ? text::WideToUtf8(*adapter.friendly_name) : "<N/A>");
  fmt::print(context.out, "  Status:  {}\n", adapter.is_up ? "Up" : "Down/Other");
  fmt::print(context.out, "  Type:    {}\n", InterfaceTypeName(adapter.interface_type));
  fmt::print(context.out, "  MAC:     {}\n", FormatPhysicalAddress(adapter.physical_address));
  fmt::print(context.out, "  IP Addresses:\n");
  if (adapter.addresses.empty()) {
    fmt::print(context.out, "  No Unicast IP Addresses found.\n");
  }
  for (const UnicastAddress& address : adapter.addresses) {
    const auto write = address.family == AddressFamily::ipv4 ? WriteIPv4 : WriteIPv6;
    write(context, address.text);
  }
}

}  // namespace

AdapterList WriteNetworkInterfaces(const SectionContext& context) {
  fmt::print(context.out, "\n--- Network Interfaces ---\n");
  const auto network = context.machine.OpenNetwork();
  if (!network) {
    context.log.LogError("WSAStartup failed: {}", network.error());
    fmt::print(context.out, "Network Info: <WSAStartup failed: {}>\n", network.error());
    return {};
  }
  auto adapters = ListAdapters(**network, context.log);
  if (!adapters) {
    const std::uint32_t code = adapters.error().code.value;
    context.log.LogError("GetAdaptersAddresses failed: {}", code);
    fmt::print(context.out, "Network Info: <GetAdaptersAddresses failed with error: {}>\n", code);
    return {};
  }
  // The system's own order depends on its preferences of the moment.
  std::ranges::stable_sort(*adapters, {}, &NetworkAdapter::index);
  for (const NetworkAdapter& adapter : *adapters) WriteAdapter(context, adapter);
  return *std::move(adapters);
}

void WriteNatStatus(const SectionContext& context, const AdapterList& adapters) {
  fmt::print(context.out, "\n--- NAT Status (Heuristic) ---\n");
  fmt::print(context.out, "Likely Behind NAT Router: {}\n",
             IsLikelyBehindNat(adapters) ? "Yes" : "No");
  fmt::print(context.out,
             " (Note: Based on detecting a private IPv4 address on an active, non-loopback, "
             "non-tunnel network interface)\n");
}

}  // namespace vosk::report
