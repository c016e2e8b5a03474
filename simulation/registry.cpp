#include "simulation/registry.h"

#include <fmt/format.h>

#include "text/utf.h"

namespace vosk::simulation {

using platform::RegistryKey;
using platform::RegistryValue;
using platform::Result;
namespace rights = platform::registry_access;

namespace {

constexpr std::uint32_t kQueryRight = 0x0001;
constexpr std::uint32_t kSetRight = 0x0002;
constexpr std::uint32_t kEnumerateRight = 0x0008;

std::string Lower(const std::string& name) {
  return text::ToLowerAscii(name);
}

}  // namespace

RegistryValue TextValue(const std::string& text) {
  RegistryValue value{.type = platform::kRegistryString, .data = {}};
  for (const char16_t unit : text::Utf8ToUtf16(text) + u'\0') {
    value.data.push_back(static_cast<std::uint8_t>(unit & 0xff));
    value.data.push_back(static_cast<std::uint8_t>(unit >> 8));
  }
  return value;
}

RegistryValue NumberValue(std::uint32_t number) {
  RegistryValue value{.type = platform::kRegistryDword, .data = {}};
  for (int shift = 0; shift < 32; shift += 8) {
    value.data.push_back(static_cast<std::uint8_t>(number >> shift));
  }
  return value;
}

void SimRegistry::PutKey(const std::string& key_path) {
  for (std::size_t end = 0; end != std::string::npos;) {
    end = key_path.find('\\', end == 0 ? 0 : end + 1);
    const std::string path = key_path.substr(0, end);
    keys_.try_emplace(Lower(path));
    spelled_.try_emplace(Lower(path), path.substr(path.rfind('\\') + 1));
  }
}

void SimRegistry::PutValue(const std::string& key_path, const std::string& name,
                           const RegistryValue& value) {
  PutKey(key_path);
  keys_[Lower(key_path)][Lower(name)] = value;
}

void SimRegistry::PutText(const std::string& key_path, const std::string& name,
                          const std::string& text) {
  PutValue(key_path, name, TextValue(text));
}

void SimRegistry::PutNumber(const std::string& key_path, const std::string& name,
                            std::uint32_t number) {
  PutValue(key_path, name, NumberValue(number));
}

void SimRegistry::Restrict(const std::string& key_path, std::uint32_t allowed) {
  restricted_[Lower(key_path)] = allowed;
}

bool SimRegistry::HasKey(const std::string& key_path) const {
  return keys_.contains(Lower(key_path));
}

std::optional<RegistryValue> SimRegistry::ValueAt(const std::string& key_path,
                                                  const std::string& name) const {
  const auto key = keys_.find(Lower(key_path));
  if (key == keys_.end()) return std::nullopt;
  const auto value = key->second.find(Lower(name));
  return value == key->second.end() ? std::nullopt : std::optional(value->second);
}

bool SimRegistry::Permits(const std::string& path, std::uint32_t access_mask) const {
  const auto restriction = restricted_.find(path);
  if (restriction == restricted_.end()) return true;
  return (access_mask & ~rights::kView64 & ~restriction->second) == 0;
}

RegistryKey SimRegistry::NewHandle(const std::string& path, std::uint32_t granted) {
  open_.emplace(next_handle_, OpenKey{path, granted});
  return {next_handle_++, *this};
}

Result<SimRegistry::OpenKey*> SimRegistry::Reach(const RegistryKey& key, std::uint32_t right) {
  const auto open = open_.find(key.Value());
  if (open == open_.end()) return tl::unexpected(platform::kInvalidHandle);
  if ((open->second.rights & right) == 0) return tl::unexpected(platform::kAccessDenied);
  return &open->second;
}

std::string SimRegistry::Subject(const RegistryKey& key, const std::string& name) const {
  const auto open = open_.find(key.Value());
  return fmt::format("{}:{}", open == open_.end() ? "no key" : open->second.path, name);
}

Result<RegistryKey> SimRegistry::Open(const std::string& key_path, std::uint32_t access_mask) {
  const std::string subject = fmt::format("{} {:#x}", key_path, access_mask);
  return choke_.Perform("registry.Open", subject, [&]() -> Result<RegistryKey> {
    const std::string path = Lower(key_path);
    if (!keys_.contains(path)) return tl::unexpected(platform::kFileNotFound);
    if (!Permits(path, access_mask)) return tl::unexpected(platform::kAccessDenied);
    return NewHandle(path, access_mask);
  });
}

Result<platform::CreatedRegistryKey> SimRegistry::CreateOrOpen(const std::string& key_path,
                                                               std::uint32_t access_mask) {
  const std::string subject = fmt::format("{} {:#x}", key_path, access_mask);
  using Answer = Result<platform::CreatedRegistryKey>;
  return choke_.Perform("registry.CreateOrOpen", subject, [&]() -> Answer {
    const std::string path = Lower(key_path);
    if (!Permits(path, access_mask)) return tl::unexpected(platform::kAccessDenied);
    const bool created = !keys_.contains(path);
    if (created) PutKey(key_path);
    return platform::CreatedRegistryKey{NewHandle(path, access_mask), created};
  });
}

Result<RegistryValue> SimRegistry::Query(const RegistryKey& key, const std::string& name) {
  return choke_.Perform("registry.Query", Subject(key, name), [&]() -> Result<RegistryValue> {
    const auto open = Reach(key, kQueryRight);
    if (!open) return tl::unexpected(open.error());
    const auto value = ValueAt((*open)->path, name);
    if (!value) return tl::unexpected(platform::kFileNotFound);
    return *value;
  });
}

Result<std::string> SimRegistry::SubKeyName(const RegistryKey& key, std::uint32_t index) {
  const std::string subject = Subject(key, fmt::to_string(index));
  return choke_.Perform("registry.SubKeyName", subject, [&]() -> Result<std::string> {
    const auto open = Reach(key, kEnumerateRight);
    if (!open) return tl::unexpected(open.error());
    const std::string& parent = (*open)->path;
    const std::string prefix = parent.empty() ? parent : parent + '\\';
    for (auto at = keys_.upper_bound(prefix); at != keys_.end(); ++at) {
      if (!at->first.starts_with(prefix)) break;
      if (at->first.find('\\', prefix.size()) != std::string::npos) continue;
      if (index-- == 0) return spelled_.at(at->first);
    }
    return tl::unexpected(platform::kNoMoreItems);
  });
}

Result<> SimRegistry::SetValue(const RegistryKey& key, const std::string& name,
                               const RegistryValue& value) {
  return choke_.Perform("registry.SetValue", Subject(key, name), [&]() -> Result<> {
    const auto open = Reach(key, kSetRight);
    if (!open) return tl::unexpected(open.error());
    keys_.at((*open)->path)[Lower(name)] = value;
    return {};
  });
}

Result<> SimRegistry::RemoveValue(const RegistryKey& key, const std::string& name) {
  return choke_.Perform("registry.RemoveValue", Subject(key, name), [&]() -> Result<> {
    const auto open = Reach(key, kSetRight);
    if (!open) return tl::unexpected(open.error());
    if (keys_.at((*open)->path).erase(Lower(name)) == 0) {
      return tl::unexpected(platform::kFileNotFound);
    }
    return {};
  });
}

void SimRegistry::CloseHandleValue(platform::HandleValue value) {
  choke_.Note("registry.Close", {});
  open_.erase(value);
}

}  // namespace vosk::simulation
