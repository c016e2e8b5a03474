#include "platform/windows/wide.h"

#include <windows.h>

#include "text/utf.h"

namespace vosk::platform::windows {

// A directory's name has to leave room for a short file name.
constexpr std::size_t kLongestPlainPath = MAX_PATH - 13;

std::wstring ToWide(std::string_view utf8) {
  const std::u16string wide = text::Utf8ToUtf16(utf8);
  return {wide.begin(), wide.end()};
}

std::string FromWide(std::wstring_view wide) {
  return text::WideToUtf8(std::u16string(wide.begin(), wide.end()));
}

std::wstring SystemPath(const std::filesystem::path& path) {
  std::wstring plain = std::filesystem::path(path).make_preferred().native();
  if (plain.size() < kLongestPlainPath || plain.starts_with(LR"(\\?\)")) return plain;
  const DWORD needed = ::GetFullPathNameW(plain.c_str(), 0, nullptr, nullptr);
  std::wstring full(needed, L'\0');
  full.resize(::GetFullPathNameW(plain.c_str(), needed, full.data(), nullptr));
  if (full.starts_with(LR"(\\)")) return LR"(\\?\UNC)" + full.substr(1);
  return LR"(\\?\)" + full;
}

}  // namespace vosk::platform::windows
