#pragma once

#include <string>
#include <vector>

#include "platform/types.h"

namespace vosk::platform {

// Rights asked for when a key is opened.
namespace registry_access {
inline constexpr std::uint32_t kRead = 0x0002'0019;
inline constexpr std::uint32_t kWrite = 0x0002'0006;
inline constexpr std::uint32_t kView64 = 0x0000'0100;
}  // namespace registry_access

inline constexpr std::uint32_t kRegistryString = 1;  // REG_SZ
inline constexpr std::uint32_t kRegistryDword = 4;   // REG_DWORD

using RegistryKey = OwnedHandle<struct RegistryKeyTag>;

struct CreatedRegistryKey {
  RegistryKey key;
  bool newly_created = false;
};

// A value as it is stored: strings are UTF-16 bytes that need not end with a terminator.
struct RegistryValue {
  std::uint32_t type = 0;
  std::vector<std::uint8_t> data;
};

// The machine-wide part of the registry. Key paths and value names are UTF-8, without "HKLM\".
class Registry : public HandleCloser {
 public:
  // The error is kFileNotFound if the key is missing.
  virtual Result<RegistryKey> Open(const std::string& key_path, std::uint32_t access_mask) = 0;
  virtual Result<CreatedRegistryKey> CreateOrOpen(const std::string& key_path,
                                                  std::uint32_t access_mask) = 0;
  // The error is kFileNotFound if the value is missing, here and in RemoveValue.
  virtual Result<RegistryValue> Query(const RegistryKey& key, const std::string& name) = 0;
  // Returns the name of the index-th sub-key; kNoMoreItems after the last.
  virtual Result<std::string> SubKeyName(const RegistryKey& key, std::uint32_t index) = 0;
  virtual Result<> SetValue(const RegistryKey& key, const std::string& name,
                            const RegistryValue& value) = 0;
  virtual Result<> RemoveValue(const RegistryKey& key, const std::string& name) = 0;
};

}  // namespace vosk::platform
