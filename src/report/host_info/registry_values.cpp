#include "report/host_info/registry_values.h"

#include "text/utf.h"

namespace vosk::report {

using platform::RegistryKey;
using platform::RegistryValue;
using platform::Result;

namespace {
// A text that contains names of environment variables; they are not expanded.
constexpr std::uint32_t kRegistryExpandableString = 2;
}  // namespace

Result<std::string> DecodeText(const RegistryValue& value) {
  if (value.type != platform::kRegistryString && value.type != kRegistryExpandableString) {
    return tl::unexpected(kUnsupportedType);
  }
  std::u16string text;
  for (std::size_t at = 0; at + 1 < value.data.size(); at += 2) {
    const auto unit = static_cast<char16_t>(value.data[at] | value.data[at + 1] << 8);
    if (unit == 0) break;
    text += unit;
  }
  return text::WideToUtf8(text);
}

Result<std::uint32_t> DecodeNumber(const RegistryValue& value) {
  if (value.type != platform::kRegistryDword || value.data.size() < sizeof(std::uint32_t)) {
    return tl::unexpected(kUnsupportedType);
  }
  std::uint32_t number = 0;
  for (std::size_t at = sizeof(number); at-- > 0;) number = number << 8 | value.data[at];
  return number;
}

Result<std::string> ReadText(platform::Registry& registry, const RegistryKey& key,
                             const std::string& name) {
  return registry.Query(key, name).and_then(DecodeText);
}

Result<std::uint32_t> ReadNumber(platform::Registry& registry, const RegistryKey& key,
                                 const std::string& name) {
  return registry.Query(key, name).and_then(DecodeNumber);
}

}  // namespace vosk::report
