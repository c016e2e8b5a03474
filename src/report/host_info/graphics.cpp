#include "report/host_info/graphics.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <array>
#include <cstdint>
#include <span>

#include "report/host_info/graphics_rules.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

using platform::GraphicsAdapter;
using platform::GraphicsDescription;

// Newest first.
constexpr std::array<std::uint32_t, 9> kFeatureLevels{0xc100, 0xc000, 0xb100, 0xb000, 0xa100,
                                                      0xa000, 0x9300, 0x9200, 0x9100};

// A system refuses a list with a level newer than itself, so the newest ones are dropped until it
// accepts the rest.
platform::Result<std::uint32_t> HighestFeatureLevel(GraphicsAdapter& adapter) {
  std::span<const std::uint32_t> levels = kFeatureLevels;
  auto level = adapter.TryFeatureLevels(levels);
  while (!level && level.error() == platform::kInvalidArgument && levels.size() > 1) {
    levels = levels.subspan(1);
    level = adapter.TryFeatureLevels(levels);
  }
  return level;
}

void WriteDescription(std::ostream& out, const GraphicsDescription& adapter) {
  fmt::print(out, "  Dedicated VRAM: {} MB\n", adapter.dedicated_video_memory >> 20);
  fmt::print(out, "  Shared Memory:  {} MB\n", adapter.shared_system_memory >> 20);
  fmt::print(out, "  Vendor ID:      0x{:x}\n", adapter.vendor_id);
  fmt::print(out, "  Device ID:      0x{:x}\n", adapter.device_id);
  fmt::print(out, "  Subsystem ID:   0x{:x}\n", adapter.subsystem_id);
  fmt::print(out, "  Revision:       {}\n", adapter.revision);
  fmt::print(out, "  Type:           {}\n", AdapterClass(adapter));
  fmt::print(out, "  LUID:           {}\n", FormatLuid(adapter.luid));
}

void WriteFeatureLevel(std::ostream& out, console::LogSink& log, GraphicsAdapter& adapter,
                       std::uint32_t index) {
  const auto level = HighestFeatureLevel(adapter);
  if (level) {
    fmt::print(out, "  Feature Level:  {}\n", FeatureLevelName(*level));
    fmt::print(out, "  D3D11 Support:  Yes\n");
    return;
  }
  log.LogWarn("EnumerateGPUs: D3D11CreateDevice failed for adapter {}. HRESULT: 0x{:x}", index,
              level.error());
  fmt::print(out, "  Feature Level:  Unknown\n");
  fmt::print(out, "  D3D11 Support:  No (or driver issue)\n");
}

void WriteAdapter(std::ostream& out, console::LogSink& log, GraphicsAdapter& adapter,
                  std::uint32_t index) {
  const auto description = adapter.Describe();
  if (!description) {
    log.LogError("EnumerateGPUs: GetDesc1 failed for adapter {}. HRESULT: 0x{:x}", index,
                 description.error());
    fmt::print(out, "GPU {}: <Failed to get adapter description. HRESULT: 0x{:x}>\n", index,
               description.error());
    return;
  }
  fmt::print(out, "GPU {}: {}\n", index, text::WideToUtf8(description->name));
  WriteDescription(out, *description);
  WriteFeatureLevel(out, log, adapter, index);
}

// Writes all adapters and returns their number.
std::uint32_t WriteAdapters(std::ostream& out, console::LogSink& log,
                            platform::GraphicsAdapters& adapters) {
  for (std::uint32_t index = 0;; ++index) {
    const auto adapter = adapters.At(index);
    if (adapter) {
      WriteAdapter(out, log, **adapter, index);
      continue;
    }
    if (adapter.error() != platform::kNoSuchGraphicsAdapter) {
      log.LogError("EnumerateGPUs: EnumAdapters1 failed for adapter {}. HRESULT: 0x{:x}", index,
                   adapter.error());
      fmt::print(out, "GPU {}: <Failed to enumerate adapter. HRESULT: 0x{:x}>\n", index,
                 adapter.error());
    }
    return index;
  }
}

}  // namespace

void WriteGraphics(std::ostream& out, platform::Machine& machine, console::LogSink& log) {
  const auto adapters = machine.OpenGraphics();
  if (!adapters) {
    log.LogError("EnumerateGPUs: CreateDXGIFactory1 failed. HRESULT: 0x{:x}", adapters.error());
    fmt::print(out, "GPU Info: <Failed to create DXGI Factory. HRESULT: 0x{:x}>\n",
               adapters.error());
    return;
  }
  fmt::print(out, "--- Graphics Adapters (GPUs) ---\n");
  const std::uint32_t count = WriteAdapters(out, log, **adapters);
  if (count == 0) {
    log.LogWarn("EnumerateGPUs: No graphics adapters enumerated. This is unusual.");
    fmt::print(out, "No graphics adapters found (unusual for Windows systems).\n");
    return;
  }
  fmt::print(out, "Total GPUs found: {}\n", count);
}

}  // namespace vosk::report
