// The machine-wide registry of the simulated system.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "platform/registry.h"
#include "simulation/choke_point.h"

namespace vosk::simulation {

class SimRegistry : public platform::Registry {
 public:
  explicit SimRegistry(ChokePoint& choke) : choke_(choke) {}

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

  // --- Setting the scene, past the choke point ---------------------------------------------

  // Creates the key with its parents; names match in any letter case.
  void PutKey(const std::string& key_path);
  void PutText(const std::string& key_path, const std::string& name, const std::string& text);
  void PutNumber(const std::string& key_path, const std::string& name, std::uint32_t number);
  void PutValue(const std::string& key_path, const std::string& name,
                const platform::RegistryValue& value);
  // From now on nobody may open the key with more rights than these; 0 allows none.
  void Restrict(const std::string& key_path, std::uint32_t rights);

  // --- Looking at it -----------------------------------------------------------------------

  [[nodiscard]] bool HasKey(const std::string& key_path) const;
  [[nodiscard]] std::optional<platform::RegistryValue> ValueAt(const std::string& key_path,
                                                               const std::string& name) const;
  [[nodiscard]] std::size_t OpenHandles() const { return open_.size(); }

 private:
  using Values = std::map<std::string, platform::RegistryValue>;
  struct OpenKey {
    std::string path;
    std::uint32_t rights = 0;
  };
  platform::RegistryKey NewHandle(const std::string& path, std::uint32_t rights);
  // Returns the open key, if its handle has this right.
  platform::Result<OpenKey*> Reach(const platform::RegistryKey& key, std::uint32_t right);
  [[nodiscard]] std::string Subject(const platform::RegistryKey& key,
                                    const std::string& name) const;
  [[nodiscard]] bool Permits(const std::string& path, std::uint32_t access_mask) const;

  ChokePoint& choke_;
  std::map<std::string, Values> keys_ = {{"", {}}};  // by path, values by name; in lower case
  std::map<std::string, std::string> spelled_;       // a key's own name as it was first written
  std::map<std::string, std::uint32_t> restricted_;
  std::map<platform::HandleValue, OpenKey> open_;
  platform::HandleValue next_handle_ = 0x20000;
};

// Returns a text as it is stored: UTF-16 with its terminator.
[[nodiscard]] platform::RegistryValue TextValue(const std::string& text);
[[nodiscard]] platform::RegistryValue NumberValue(std::uint32_t number);

}  // namespace vosk::simulation
