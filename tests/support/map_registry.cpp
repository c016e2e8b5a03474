#include "tests/support/map_registry.h"

namespace vosk::support {

using platform::RegistryKey;
using platform::RegistryValue;
using platform::Result;

Result<RegistryKey> MapRegistry::Open(const std::string& key_path, std::uint32_t) {
  return choke_.Perform("registry.Open", key_path, [&]() -> Result<RegistryKey> {
    const bool exists = keys.lower_bound(key_path) != keys.end() &&
                        (keys.lower_bound(key_path)->first + '\\').starts_with(key_path + '\\');
    if (!exists) return tl::unexpected(platform::kFileNotFound);
    open_[next_handle_] = key_path;
    return RegistryKey(next_handle_++, *this);
  });
}

Result<platform::CreatedRegistryKey> MapRegistry::CreateOrOpen(const std::string& key_path,
                                                               std::uint32_t access_mask) {
  const bool created = keys.try_emplace(key_path).second;
  auto key = Open(key_path, access_mask);
  if (!key) return tl::unexpected(key.error());
  return platform::CreatedRegistryKey{*std::move(key), created};
}

Result<RegistryValue> MapRegistry::Query(const RegistryKey& key, const std::string& name) {
  return choke_.Perform("registry.Query", name, [&]() -> Result<RegistryValue> {
    const Key& values = keys[open_.at(key.Value())];
    const auto value = values.find(name);
    if (value == values.end()) return tl::unexpected(platform::kFileNotFound);
    return value->second;
  });
}

Result<std::string> MapRegistry::SubKeyName(const RegistryKey& key, std::uint32_t index) {
  return choke_.Perform("registry.SubKeyName", {}, [&]() -> Result<std::string> {
    const std::string below = open_.at(key.Value()) + '\\';
    std::string last;
    for (const auto& [path, values] : keys) {
      if (!path.starts_with(below)) continue;
      const std::string name =
          path.substr(below.size(), path.find('\\', below.size()) - below.size());
      if (name != last && index-- == 0) return name;
      last = name;
    }
    return tl::unexpected(platform::kNoMoreItems);
  });
}

Result<> MapRegistry::SetValue(const RegistryKey& key, const std::string& name,
                               const RegistryValue& value) {
  keys[open_.at(key.Value())][name] = value;
  return {};
}

Result<> MapRegistry::RemoveValue(const RegistryKey& key, const std::string& name) {
  if (keys[open_.at(key.Value())].erase(name) == 0) return tl::unexpected(platform::kFileNotFound);
  return {};
}

void MapRegistry::CloseHandleValue(platform::HandleValue value) {
  open_.erase(value);
}

}  // namespace vosk::support
