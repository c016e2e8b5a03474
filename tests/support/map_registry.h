// A registry of ordered maps.
#pragma once

#include <map>
#include <string>

#include "platform/registry.h"
#include "tests/support/choke_point.h"

namespace vosk::support {

class MapRegistry : public platform::Registry {
 public:
  explicit MapRegistry(ChokePoint& choke) : choke_(choke) {}

  platform::Result<platform::RegistryKey> Open(const std::string& key_path,
                                               std::uint32_t access_mask) override;
  platform::Result<platform::CreatedRegistryKey> CreateOrOpen(const std::string& key_path,
                                                              std::uint32_t access_mask) override;
  platform::Result<platform::RegistryValue> Query(const platform::RegistryKey& key,
                                                  const std::string& name) override;
  platform::Result<std::string> SubKeyName(const platform::RegistryKey& key,
                                           std::uint32_t index) override;
  platform::Result<> SetValue(const platform::RegistryKey& key, const std::string& name,
                              const platform::RegistryValue& value) override;
  platform::Result<> RemoveValue(const platform::RegistryKey& key,
                                 const std::string& name) override;
  void CloseHandleValue(platform::HandleValue value) override;

  using Key = std::map<std::string, platform::RegistryValue>;
  std::map<std::string, Key> keys;

  [[nodiscard]] std::size_t OpenHandles() const { return open_.size(); }

 private:
  ChokePoint& choke_;
  std::map<platform::HandleValue, std::string> open_;
  platform::HandleValue next_handle_ = 0x20000;
};

}  // namespace vosk::support
