#include "report/host_info/graphics_rules.h"

#include <fmt/format.h>

namespace vosk::report {
namespace {

constexpr std::uint32_t kIntel = 0x8086;
constexpr std::uint32_t kAmd = 0x1002;
constexpr std::uint32_t kNvidia = 0x10DE;
// Intel and AMD adapters with at least this much dedicated memory are discrete.
constexpr std::uint64_t kDiscreteMebibytes = 512;

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

}  // namespace vosk::report
