// The simulated machine's hardware and version: plain data that a test changes as it likes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/machine.h"
#include "simulation/choke_point.h"

namespace vosk::simulation {

struct SimGraphicsAdapter {
  platform::GraphicsDescription description;
  // The best Direct3D 11 feature level; none: its driver creates no device.
  std::optional<std::uint32_t> feature_level = 0xb100;
};

class SimMachine : public platform::Machine {
 public:
  explicit SimMachine(ChokePoint& choke);

  platform::Result<platform::MemoryStatus> Memory() override;
  std::uint32_t LogicalProcessors() override;
  platform::Result<std::unique_ptr<platform::GraphicsAdapters>> OpenGraphics() override;
  platform::Result<std::unique_ptr<platform::NetworkSession>> OpenNetwork() override;
  platform::Result<std::filesystem::path> SystemDirectory() override;
  platform::Result<platform::FileVersion> VersionOf(const std::filesystem::path& file) override;
  platform::Result<platform::WindowsVersion> OperatingSystem() override;
  platform::Result<std::uint32_t> ProductCode(const platform::WindowsVersion& version) override;

  platform::MemoryStatus memory{
      .total_physical = 16ull << 30, .available_physical = 9ull << 30, .load_percent = 43};
  std::uint32_t logical_processors = 8;
  std::vector<SimGraphicsAdapter> graphics;
  // The newest feature level that the system knows.
  std::uint32_t newest_feature_level = 0xc100;
  std::vector<platform::NetworkAdapter> network;
  // The bytes that one network adapter takes in the buffer, and the growth from call to call.
  std::uint32_t bytes_for_adapter = 600;
  std::uint32_t growth_between_calls = 0;
  std::filesystem::path system_directory = "C:/Windows/System32";
  std::map<std::filesystem::path, platform::FileVersion> file_versions;
  platform::WindowsVersion windows{.major = 10,
                                   .minor = 0,
                                   .build = 22631,
                                   .product_type = platform::kWorkstation,
                                   .service_pack = {}};
  std::uint32_t product_code = 0x30;

  // Returns how many parts were handed out and not yet released.
  [[nodiscard]] int OpenParts() const { return open_parts_; }

 private:
  friend class SimGraphics;
  friend class SimGraphicsCard;
  friend class SimNetwork;
  ChokePoint& choke_;
  int open_parts_ = 0;
};

// Returns an adapter that leads into a network, is up and has one address of each family.
[[nodiscard]] platform::NetworkAdapter EthernetAdapter(std::uint32_t index, std::u16string name,
                                                       std::string ipv4);
[[nodiscard]] platform::NetworkAdapter LoopbackAdapter();

}  // namespace vosk::simulation
