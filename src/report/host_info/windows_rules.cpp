#include "report/host_info/windows_rules.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <span>
#include <string_view>

namespace vosk::report {
namespace {

using platform::WindowsVersion;

struct Release {
  std::uint32_t major;
  std::uint32_t minor;
  std::uint32_t first_build;
  std::string_view name;
};

constexpr std::array kWorkstations{
    Release{10, 0, 22000, "Windows 11"}, Release{10, 0, 0, "Windows 10"},
    Release{6, 3, 0, "Windows 8.1"},     Release{6, 2, 0, "Windows 8"},
    Release{6, 1, 0, "Windows 7"},       Release{6, 0, 0, "Windows Vista"},
};

constexpr std::array kServers{
    Release{10, 0, 20348, "Windows Server 2022"},
    Release{10, 0, 17763, "Windows Server 2019"},
    Release{10, 0, 14393, "Windows Server 2016"},
    Release{10, 0, 0, "Windows Server (Unknown version)"},
    Release{6, 3, 0, "Windows Server 2012 R2"},
    Release{6, 2, 0, "Windows Server 2012"},
    Release{6, 1, 0, "Windows Server 2008 R2"},
    Release{6, 0, 0, "Windows Server 2008"},
};

bool IsServer(std::uint32_t product_type) {
  return product_type == platform::kServer || product_type == platform::kDomainController;
}

std::string NameIn(std::span<const Release> releases, const WindowsVersion& version) {
  const auto release = std::ranges::find_if(releases, [&](const Release& row) {
    return row.major == version.major && row.minor == version.minor &&
           version.build >= row.first_build;
  });
  return release == releases.end() ? "Unknown" : std::string(release->name);
}

bool IsOneOf(std::uint32_t code, std::initializer_list<std::uint32_t> codes) {
  return std::ranges::find(codes, code) != codes.end();
}

// The codes are those of winnt.h (PRODUCT_...); variants of an edition (N, evaluation, single
// language, long-term servicing, without Hyper-V, core installation) count as the edition.
std::string_view WorkstationEdition(std::uint32_t code) {
  if (IsOneOf(code, {0x30, 0x31, 0x45, 0x67, 0x70, 0x72, 0xA1, 0xA2, 0xA4, 0xA5})) return " Pro";
  if (IsOneOf(code, {0x02, 0x03, 0x05, 0x1A, 0x62, 0x63, 0x64, 0x65, 0x6F, 0x71, 0x73, 0x74}))
    return " Home";
  if (IsOneOf(code, {0x04, 0x1B, 0x46, 0x48, 0x54, 0x7D, 0x7E, 0x81, 0x82, 0xAB, 0xAC, 0xAF, 0xBC,
                     0xBF})) {
    return " Enterprise";
  }
  if (IsOneOf(code, {0x79, 0x7A})) return " Education";
  return {};
}

std::string_view ServerEdition(std::uint32_t code) {
  if (IsOneOf(code, {0x08, 0x0C, 0x25, 0x27, 0x50, 0x91, 0x93, 0x9F, 0x197, 0x198})) {
    return " Datacenter";
  }
  if (IsOneOf(code, {0x0A, 0x0E, 0x0F, 0x26, 0x29})) return " Enterprise";
  if (IsOneOf(code, {0x07, 0x0D, 0x24, 0x28, 0x4F, 0x92, 0x94, 0xA0})) return " Standard";
  return {};
}

}  // namespace

std::string WindowsName(const WindowsVersion& version) {
  if (IsServer(version.product_type)) return NameIn(kServers, version);
  if (version.product_type == platform::kWorkstation) return NameIn(kWorkstations, version);
  return "Unknown";
}

std::string WindowsEdition(std::uint32_t product_type, std::uint32_t product_code) {
  const std::string_view edition =
      IsServer(product_type) ? ServerEdition(product_code) : WorkstationEdition(product_code);
  if (edition.empty()) return fmt::format(" Unknown (0x{:x})", product_code);
  return std::string(edition);
}

std::string ProductTypeName(std::uint32_t product_type) {
  switch (product_type) {
    case platform::kWorkstation:
      return "Workstation";
    case platform::kDomainController:
      return "Domain Controller";
    case platform::kServer:
      return "Server";
    default:
      return fmt::format("Unknown ({})", product_type);
  }
}

}  // namespace vosk::report
