// What the report concludes from the list of network adapters.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/machine.h"

namespace vosk::report {

// Whether a dotted address is private; loopback and link-local addresses count as private too.
[[nodiscard]] bool IsPrivateIPv4(std::string_view text);
[[nodiscard]] std::string InterfaceTypeName(std::uint32_t interface_type);
// Two upper-case digits for each byte; says so if the length is unusual.
[[nodiscard]] std::string FormatPhysicalAddress(std::span<const std::uint8_t> address);
// A private address on an adapter that is up and leads somewhere: the router in between has the
// public one.
[[nodiscard]] bool IsLikelyBehindNat(std::span<const platform::NetworkAdapter> adapters);

}  // namespace vosk::report
