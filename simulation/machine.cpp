#include "simulation/machine.h"

#include <fmt/format.h>

#include <algorithm>

namespace vosk::simulation {

using platform::ErrorCode;
using platform::GraphicsAdapter;
using platform::GraphicsAdapters;
using platform::GraphicsDescription;
using platform::NetworkAdapter;
using platform::NetworkSession;
using platform::Result;

namespace {

constexpr ErrorCode kUnsupported{0x887A0004};

}  // namespace

class SimGraphicsCard : public GraphicsAdapter {
 public:
  SimGraphicsCard(SimMachine& machine, std::uint32_t index) : machine_(machine), index_(index) {
    ++machine_.open_parts_;
  }
  ~SimGraphicsCard() override { --machine_.open_parts_; }

  Result<GraphicsDescription> Describe() override {
    using Answer = Result<GraphicsDescription>;
    return machine_.choke_.Perform("machine.Graphics.Describe", fmt::format("{}", index_),
                                   [&]() -> Answer { return Adapter().description; });
  }

  Result<std::uint32_t> TryFeatureLevels(std::span<const std::uint32_t> levels) override {
    using Answer = Result<std::uint32_t>;
    const std::string subject = fmt::format("{} {:x}", index_, fmt::join(levels, " "));
    return machine_.choke_.Perform("machine.Graphics.TryFeatureLevels", subject, [&]() -> Answer {
      if (std::ranges::max(levels) > machine_.newest_feature_level) {
        return tl::unexpected(platform::kInvalidArgument);
      }
      const auto accepted = std::ranges::find_if(levels, [&](std::uint32_t level) {
        return Adapter().feature_level && level <= *Adapter().feature_level;
      });
      if (accepted == levels.end()) return tl::unexpected(kUnsupported);
      return *accepted;
    });
  }

 private:
  [[nodiscard]] const SimGraphicsAdapter& Adapter() const { return machine_.graphics.at(index_); }

  SimMachine& machine_;
  std::uint32_t index_;
};

class SimGraphics : public GraphicsAdapters {
 public:
  explicit SimGraphics(SimMachine& machine) : machine_(machine) { ++machine_.open_parts_; }
  ~SimGraphics() override { --machine_.open_parts_; }

  Result<std::unique_ptr<GraphicsAdapter>> At(std::uint32_t index) override {
    using Answer = Result<std::unique_ptr<GraphicsAdapter>>;
    const auto effect = [&]() -> Answer {
      if (index >= machine_.graphics.size()) {
        return tl::unexpected(platform::kNoSuchGraphicsAdapter);
      }
      return std::make_unique<SimGraphicsCard>(machine_, index);
    };
    return machine_.choke_.Perform("machine.Graphics.At", fmt::format("{}", index), effect);
  }

 private:
  SimMachine& machine_;
};

class SimNetwork : public NetworkSession {
 public:
  explicit SimNetwork(SimMachine& machine) : machine_(machine) { ++machine_.open_parts_; }
  ~SimNetwork() override { --machine_.open_parts_; }

  Result<std::vector<NetworkAdapter>> Adapters(std::uint32_t& buffer_bytes) override {
    using Answer = Result<std::vector<NetworkAdapter>>;
    // A call that fails early does not return the size.
    const std::uint32_t offered = std::exchange(buffer_bytes, 0);
    const std::string subject = fmt::format("{} bytes", offered);
    return machine_.choke_.Perform("machine.Network.Adapters", subject, [&]() -> Answer {
      const auto adapters = static_cast<std::uint32_t>(machine_.network.size());
      const std::uint32_t needed =
          adapters * machine_.bytes_for_adapter + calls_++ * machine_.growth_between_calls;
      if (needed > offered) {
        buffer_bytes = needed;
        return tl::unexpected(platform::kBufferOverflow);
      }
      return machine_.network;
    });
  }

 private:
  SimMachine& machine_;
  std::uint32_t calls_ = 0;
};

SimMachine::SimMachine(ChokePoint& choke) : choke_(choke) {
  const GraphicsDescription radeon{.name = u"AMD Radeon RX 6600",
                                   .vendor_id = 0x1002,
                                   .device_id = 0x73ff,
                                   .subsystem_id = 0x24121458,
                                   .revision = 199,
                                   .dedicated_video_memory = 8'176ull << 20,
                                   .shared_system_memory = 8'171ull << 20,
                                   .luid = {.high = 0, .low = 0xd1f2}};
  graphics = {{.description = radeon, .feature_level = 0xc100}};
  network = {EthernetAdapter(7, u"Ethernet", "192.168.1.20"), LoopbackAdapter()};
}

Result<platform::MemoryStatus> SimMachine::Memory() {
  return choke_.Perform("machine.Memory", {},
                        [&]() -> Result<platform::MemoryStatus> { return memory; });
}

std::uint32_t SimMachine::LogicalProcessors() {
  choke_.Note("machine.LogicalProcessors", {});
  return logical_processors;
}

Result<std::unique_ptr<GraphicsAdapters>> SimMachine::OpenGraphics() {
  using Answer = Result<std::unique_ptr<GraphicsAdapters>>;
  return choke_.Perform("machine.OpenGraphics", {},
                        [&]() -> Answer { return std::make_unique<SimGraphics>(*this); });
}

Result<std::unique_ptr<NetworkSession>> SimMachine::OpenNetwork() {
  using Answer = Result<std::unique_ptr<NetworkSession>>;
  return choke_.Perform("machine.OpenNetwork", {},
                        [&]() -> Answer { return std::make_unique<SimNetwork>(*this); });
}

Result<std::filesystem::path> SimMachine::SystemDirectory() {
  return choke_.Perform("machine.SystemDirectory", {},
                        [&]() -> Result<std::filesystem::path> { return system_directory; });
}

Result<platform::FileVersion> SimMachine::VersionOf(const std::filesystem::path& file) {
  using Answer = Result<platform::FileVersion>;
  return choke_.Perform("machine.VersionOf", file.string(), [&]() -> Answer {
    const auto version = file_versions.find(file);
    if (version != file_versions.end()) return version->second;
    const bool exists = std::filesystem::exists(file);
    return tl::unexpected(exists ? platform::kNoVersionResource : platform::kFileNotFound);
  });
}

Result<platform::WindowsVersion> SimMachine::OperatingSystem() {
  return choke_.Perform("machine.OperatingSystem", {},
                        [&]() -> Result<platform::WindowsVersion> { return windows; });
}

Result<std::uint32_t> SimMachine::ProductCode(const platform::WindowsVersion& version) {
  const std::string subject = fmt::format("{}.{}", version.major, version.minor);
  return choke_.Perform("machine.ProductCode", subject,
                        [&]() -> Result<std::uint32_t> { return product_code; });
}

NetworkAdapter EthernetAdapter(std::uint32_t index, std::u16string name, std::string ipv4) {
  const auto last = static_cast<std::uint8_t>(index);
  return {.index = index,
          .friendly_name = std::move(name),
          .is_up = true,
          .interface_type = 6,
          .physical_address = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, last},
          .addresses = {{platform::AddressFamily::ipv6, fmt::format("fe80::21a:2bff:{:x}", index)},
                        {platform::AddressFamily::ipv4, std::move(ipv4)}}};
}

NetworkAdapter LoopbackAdapter() {
  return {.index = 1,
          .friendly_name = u"Loopback Pseudo-Interface 1",
          .is_up = true,
          .interface_type = 24,
          .physical_address = {},
          .addresses = {{platform::AddressFamily::ipv6, "::1"},
                        {platform::AddressFamily::ipv4, "127.0.0.1"}}};
}

}  // namespace vosk::simulation
