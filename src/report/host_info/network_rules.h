// What the report concludes from the list of network adapters.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/machine.h"

namespace vosk::report {

// Returns whether a dotted address is private; loopback and link-local addresses count as private
// too.
[[nodiscard]] bool IsPrivateIPv4(std::string_view text);
[[nodiscard]] std::string InterfaceTypeName(std::uint32_t interface_type);
// Returns two upper-case digits for each byte; the text mentions an unusual length.
[[nodiscard]] std::string FormatPhysicalAddress(std::span<const std::uint8_t> address);
// Returns whether an adapter that is up and leads somewhere has a private address: the router in
// between has the public one.
[[nodiscard]] bool IsLikelyBehindNat(std::span<const platform::NetworkAdapter> adapters);

}  // namespace vosk::report
