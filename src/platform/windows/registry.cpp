#include "platform/registry.h"

#include <windows.h>

#include "platform/windows/parts.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

// The longest name of a key, in characters with its terminator.
constexpr std::size_t kMaxKeyName = 256;

HKEY KeyOf(const RegistryKey& key) {
  return reinterpret_cast<HKEY>(key.Value());
}

// These calls return their error number and do not set the last error.
tl::unexpected<ErrorCode> Failed(LSTATUS status) {
  return tl::unexpected(ErrorCode{static_cast<std::uint32_t>(status)});
}

class WindowsRegistry : public Registry {
 public:
  Result<RegistryKey> Open(const std::string& key_path, std::uint32_t access_mask) override {
    HKEY key = nullptr;
    const LSTATUS status =
        ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, ToWide(key_path).c_str(), 0, access_mask, &key);
    if (status != ERROR_SUCCESS) return Failed(status);
    return Own(key);
  }

  Result<CreatedRegistryKey> CreateOrOpen(const std::string& key_path,
                                          std::uint32_t access_mask) override {
    HKEY key = nullptr;
    DWORD disposition = 0;
    const LSTATUS status =
        ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, ToWide(key_path).c_str(), 0, nullptr,
                          REG_OPTION_NON_VOLATILE, access_mask, nullptr, &key, &disposition);
    if (status != ERROR_SUCCESS) return Failed(status);
    return CreatedRegistryKey{Own(key), disposition == REG_CREATED_NEW_KEY};
  }

  Result<RegistryValue> Query(const RegistryKey& key, const std::string& name) override {
    const std::wstring wide_name = ToWide(name);
    RegistryValue value;
    LSTATUS status = ERROR_MORE_DATA;
    // The value may grow between the question for its size and the reading.
    while (status == ERROR_MORE_DATA) {
      DWORD type = 0;
      DWORD size = 0;
      status = ::RegQueryValueExW(KeyOf(key), wide_name.c_str(), nullptr, &type, nullptr, &size);
      if (status != ERROR_SUCCESS) break;
      value.data.resize(size);
      // Without a buffer the call would return the size alone.
      std::uint8_t nothing = 0;
      std::uint8_t* const buffer = value.data.empty() ? &nothing : value.data.data();
      status = ::RegQueryValueExW(KeyOf(key), wide_name.c_str(), nullptr, &type, buffer, &size);
      value.type = type;
      if (status == ERROR_SUCCESS) value.data.resize(size);
    }
    if (status != ERROR_SUCCESS) return Failed(status);
    return value;
  }

  Result<std::string> SubKeyName(const RegistryKey& key, std::uint32_t index) override {
    wchar_t name[kMaxKeyName];
    DWORD length = kMaxKeyName;
    const LSTATUS status =
        ::RegEnumKeyExW(KeyOf(key), index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status != ERROR_SUCCESS) return Failed(status);
    return FromWide({name, length});
  }

  Result<> SetValue(const RegistryKey& key, const std::string& name,
                    const RegistryValue& value) override {
    const LSTATUS status =
        ::RegSetValueExW(KeyOf(key), ToWide(name).c_str(), 0, value.type, value.data.data(),
                         static_cast<DWORD>(value.data.size()));
    if (status != ERROR_SUCCESS) return Failed(status);
    return {};
  }

  Result<> RemoveValue(const RegistryKey& key, const std::string& name) override {
    const LSTATUS status = ::RegDeleteValueW(KeyOf(key), ToWide(name).c_str());
    if (status != ERROR_SUCCESS) return Failed(status);
    return {};
  }

  void CloseHandleValue(HandleValue value) override {
    ::RegCloseKey(reinterpret_cast<HKEY>(value));
  }

 private:
  RegistryKey Own(HKEY key) { return {reinterpret_cast<HandleValue>(key), *this}; }
};

}  // namespace

std::unique_ptr<Registry> MakeRegistry() {
  return std::make_unique<WindowsRegistry>();
}

}  // namespace vosk::platform::windows
