// What the host report concludes from what the machine says of itself: pure functions over plain
// data.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine.h"
#include "report/process_module.h"

namespace vosk::report {

// --- Graphics -----------------------------------------------------------------------------

[[nodiscard]] std::string AdapterClass(const platform::GraphicsDescription& adapter);
// A Direct3D feature level by name ("DirectX 11.1"); "Unknown" for those before and between.
[[nodiscard]] std::string FeatureLevelName(std::uint32_t level);
[[nodiscard]] std::string FormatLuid(const platform::LocallyUniqueId& luid);

// --- Network ------------------------------------------------------------------------------

// Whether a dotted address is private; loopback and link-local addresses count as private too.
[[nodiscard]] bool IsPrivateIPv4(std::string_view text);
[[nodiscard]] std::string InterfaceTypeName(std::uint32_t interface_type);
// Two upper-case digits for each byte; says so when the length is unusual.
[[nodiscard]] std::string FormatPhysicalAddress(std::span<const std::uint8_t> address);
// A private address on an adapter that is up and leads somewhere: the router in between has the
// public one.
[[nodiscard]] bool IsLikelyBehindNat(std::span<const platform::NetworkAdapter> adapters);

// --- Runtime libraries --------------------------------------------------------------------

// Whether a module (a file name in any case) belongs to the C++ runtime or the base of the system.
[[nodiscard]] bool IsRuntimeModule(std::string_view file_name);
// The line that names the Visual C++ runtime among the modules of a process.
[[nodiscard]] std::string DetectRuntime(std::span<const ProcessModule> modules);
// The .NET Framework 4 version that a release number stands for.
[[nodiscard]] std::string DotNetName(std::uint32_t release);
// Whether a sub-key of the .NET set-up key stands for a version before 4.
[[nodiscard]] bool IsOlderDotNetKey(std::string_view key);

// --- Windows ------------------------------------------------------------------------------

[[nodiscard]] std::string WindowsName(const platform::WindowsVersion& version);
// With a blank in front (" Pro"), as the label expects it.
[[nodiscard]] std::string WindowsEdition(std::uint32_t product_type, std::uint32_t product_code);
[[nodiscard]] std::string ProductTypeName(std::uint32_t product_type);
[[nodiscard]] std::string FormatFileVersion(const platform::FileVersion& version);

}  // namespace vosk::report
