// What the machine is made of: memory, processors, graphics, network, the version of Windows.
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/types.h"

namespace vosk::platform {

struct MemoryStatus {
  std::uint64_t total_physical = 0;  // bytes
  std::uint64_t available_physical = 0;
  std::uint32_t load_percent = 0;
};

inline constexpr ErrorCode kNoSuchGraphicsAdapter{0x887A0002};  // DXGI_ERROR_NOT_FOUND
inline constexpr ErrorCode kInvalidArgument{0x80070057};
inline constexpr std::uint32_t kSoftwareGraphicsAdapter = 2;  // a bit of the adapter's flags

// A number that is unique until the machine restarts.
struct LocallyUniqueId {
  std::uint32_t high = 0;
  std::uint32_t low = 0;
};

struct GraphicsDescription {
  std::u16string name;
  std::uint32_t vendor_id = 0;
  std::uint32_t device_id = 0;
  std::uint32_t subsystem_id = 0;
  std::uint32_t revision = 0;
  std::uint64_t dedicated_video_memory = 0;  // bytes
  std::uint64_t shared_system_memory = 0;
  LocallyUniqueId luid = {};
  std::uint32_t flags = 0;
};

class GraphicsAdapter {
 public:
  virtual ~GraphicsAdapter() = default;
  virtual Result<GraphicsDescription> Describe() = 0;
  // Creates and drops a Direct3D 11 device of the first of these feature levels that the adapter
  // accepts, and returns that level. If the system does not know one of them, it refuses all with
  // kInvalidArgument.
  virtual Result<std::uint32_t> TryFeatureLevels(std::span<const std::uint32_t> levels) = 0;
};

// The graphics adapters by index from 0; kNoSuchGraphicsAdapter after the last.
class GraphicsAdapters {
 public:
  virtual ~GraphicsAdapters() = default;
  virtual Result<std::unique_ptr<GraphicsAdapter>> At(std::uint32_t index) = 0;
};

inline constexpr ErrorCode kBufferOverflow{111};

enum class AddressFamily { ipv4, ipv6 };

struct UnicastAddress {
  AddressFamily family = AddressFamily::ipv4;
  Result<std::string> text;  // as it is commonly written, or why it could not be
};

struct NetworkAdapter {
  std::uint32_t index = 0;  // the system's number of the interface
  std::optional<std::u16string> friendly_name = {};
  bool is_up = false;
  std::uint32_t interface_type = 0;  // as assigned by IANA
  std::vector<std::uint8_t> physical_address = {};
  std::vector<UnicastAddress> addresses = {};  // without those of other families
};

// Keeps the sockets library in use as long as this lives.
class NetworkSession {
 public:
  virtual ~NetworkSession() = default;
  // Returns the adapters with their unicast addresses of both families, read through a buffer of
  // that size; on kBufferOverflow the size becomes the one that is needed.
  virtual Result<std::vector<NetworkAdapter>> Adapters(std::uint32_t& buffer_bytes) = 0;
};

inline constexpr std::uint8_t kWorkstation = 1;
inline constexpr std::uint8_t kDomainController = 2;
inline constexpr std::uint8_t kServer = 3;

struct WindowsVersion {
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t build = 0;
  std::uint32_t product_type = 0;  // kWorkstation...
  std::uint16_t service_pack_major = 0;
  std::uint16_t service_pack_minor = 0;
  std::u16string service_pack;
};

// The error of VersionOf if the file has no version.
inline constexpr ErrorCode kNoResources{1812};
inline constexpr ErrorCode kNoVersionResource{1813};

using FileVersion = std::array<std::uint16_t, 4>;

class Machine {
 public:
  virtual ~Machine() = default;
  virtual Result<MemoryStatus> Memory() = 0;
  // The active ones of all processor groups.
  virtual std::uint32_t LogicalProcessors() = 0;
  virtual Result<std::unique_ptr<GraphicsAdapters>> OpenGraphics() = 0;
  virtual Result<std::unique_ptr<NetworkSession>> OpenNetwork() = 0;
  virtual Result<std::filesystem::path> SystemDirectory() = 0;
  // Reads the version resource of a file.
  virtual Result<FileVersion> VersionOf(const std::filesystem::path& file) = 0;
  // Returns the true version, whatever the program's manifest says.
  virtual Result<WindowsVersion> OperatingSystem() = 0;
  // Returns the edition's number. An earlier version may not know later editions.
  virtual Result<std::uint32_t> ProductCode(const WindowsVersion& version) = 0;
};

}  // namespace vosk::platform
