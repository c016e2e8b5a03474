#include "platform/windows/network.h"

#include <winsock2.h>
// These build on winsock2.h.
#include <iphlpapi.h>
#include <ws2tcpip.h>

#include <array>
#include <vector>

namespace vosk::platform::windows {
namespace {

constexpr WORD kVersion22 = MAKEWORD(2, 2);

// Returns nothing for an address of another family.
std::optional<UnicastAddress> Convert(const sockaddr& address) {
  const bool ipv4 = address.sa_family == AF_INET;
  if (!ipv4 && address.sa_family != AF_INET6) return std::nullopt;
  const void* bytes =
      ipv4 ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in&>(address).sin_addr)
           : &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
  UnicastAddress converted{ipv4 ? AddressFamily::ipv4 : AddressFamily::ipv6, std::string()};
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (::inet_ntop(address.sa_family, bytes, text.data(), text.size()) != nullptr) {
    converted.text = text.data();
  } else {
    converted.text =
        tl::unexpected<Error>(ErrorCode{static_cast<std::uint32_t>(::WSAGetLastError())});
  }
  return converted;
}

NetworkAdapter Convert(const IP_ADAPTER_ADDRESSES& found) {
  NetworkAdapter adapter;
  // An adapter without IPv4 has a number for IPv6 only.
  adapter.index = found.IfIndex != 0 ? found.IfIndex : found.Ipv6IfIndex;
  if (found.FriendlyName != nullptr) {
    const std::wstring_view name(found.FriendlyName);
    adapter.friendly_name = std::u16string(name.begin(), name.end());
  }
  adapter.is_up = found.OperStatus == IfOperStatusUp;
  adapter.interface_type = found.IfType;
  adapter.physical_address.assign(found.PhysicalAddress,
                                  found.PhysicalAddress + found.PhysicalAddressLength);
  for (const auto* unicast = found.FirstUnicastAddress; unicast != nullptr;
       unicast = unicast->Next) {
    if (auto address = Convert(*unicast->Address.lpSockaddr)) {
      adapter.addresses.push_back(*std::move(address));
    }
  }
  return adapter;
}

class WinsockSession : public NetworkSession {
 public:
  WinsockSession() = default;
  WinsockSession(const WinsockSession&) = delete;
  WinsockSession& operator=(const WinsockSession&) = delete;
  ~WinsockSession() override { ::WSACleanup(); }

  Result<std::vector<NetworkAdapter>> Adapters(std::uint32_t& buffer_bytes) override {
    constexpr ULONG kFlags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST |
                             GAA_FLAG_SKIP_DNS_SERVER | GAA_FLAG_INCLUDE_PREFIX;
    // This type has the alignment that the records need.
    std::vector<std::uint64_t> buffer(buffer_bytes / sizeof(std::uint64_t) + 1);
    auto* first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
    ULONG size = buffer_bytes;
    const ULONG answer = ::GetAdaptersAddresses(AF_UNSPEC, kFlags, nullptr, first, &size);
    buffer_bytes = size;
    if (answer != NO_ERROR) return tl::unexpected(ErrorCode{answer});
    std::vector<NetworkAdapter> adapters;
    for (const auto* adapter = first; adapter != nullptr; adapter = adapter->Next) {
      adapters.push_back(Convert(*adapter));
    }
    return adapters;
  }
};

}  // namespace

Result<std::unique_ptr<NetworkSession>> OpenWinsock() {
  WSADATA data{};
  const int answer = ::WSAStartup(kVersion22, &data);
  if (answer != 0) return tl::unexpected(ErrorCode{static_cast<std::uint32_t>(answer)});
  return std::make_unique<WinsockSession>();
}

}  // namespace vosk::platform::windows
