#include "text/utf.h"

#include <fmt/format.h>

#include <algorithm>

namespace vosk::text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

template <typename Char>
std::basic_string<Char> LowerAscii(std::basic_string_view<Char> text) {
  std::basic_string<Char> out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](Char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<Char>(c + ('a' - 'A')) : c;
  });
  return out;
}

// A path's own form is UTF-8 bytes on the build machine and UTF-16 on Windows.
[[maybe_unused]] tl::expected<std::string, std::uint32_t> NativeToUtf8(const std::string& native) {
  return native;
}

[[maybe_unused]] tl::expected<std::string, std::uint32_t> NativeToUtf8(const std::wstring& native) {
  return Utf16ToUtf8(std::u16string(native.begin(), native.end()));
}

}  // namespace

void AppendUtf8(char32_t code_point, std::string& out) {
  const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
  if (code_point < 0x80) {
    out += byte(code_point);
  } else if (code_point < 0x800) {
    out += {byte(0xC0 | code_point >> 6), byte(0x80 | (code_point & 0x3F))};
  } else if (code_point < 0x10000) {
    out += {byte(0xE0 | code_point >> 12), byte(0x80 | (code_point >> 6 & 0x3F)),
            byte(0x80 | (code_point & 0x3F))};
  } else {
    out += {byte(0xF0 | code_point >> 18), byte(0x80 | (code_point >> 12 & 0x3F)),
            byte(0x80 | (code_point >> 6 & 0x3F)), byte(0x80 | (code_point & 0x3F))};
  }
}

char32_t NextCodePoint(std::string_view text, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(text[at++]);
  if (lead < 0x80) return lead;
  const int length = lead >= 0xF0 && lead < 0xF5 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (length == 0 || lead >= 0xF5 || at + length - 1 > text.size()) return kReplacement;
  char32_t code_point = lead & (0x7F >> length);
  for (int i = 0; i < length - 1; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return kReplacement;
    code_point = code_point << 6 | (next & 0x3F);
  }
  const char32_t smallest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
  const bool surrogate = code_point >= 0xD800 && code_point < 0xE000;
  if (code_point < smallest || code_point > 0x10FFFF || surrogate) return kReplacement;
  at += length - 1;
  return code_point;
}

tl::expected<std::string, std::uint32_t> Utf16ToUtf8(std::u16string_view wide) {
  std::string out;
  out.reserve(wide.size());
  for (std::size_t at = 0; at < wide.size(); ++at) {
    char32_t code_point = wide[at];
    if (code_point >= 0xD800 && code_point < 0xE000) {
      const char32_t low = at + 1 < wide.size() ? wide[at + 1] : 0;
      if (code_point >= 0xDC00 || low < 0xDC00 || low >= 0xE000) {
        return tl::unexpected(kNoUnicodeTranslation);
      }
      code_point = 0x10000 + ((code_point - 0xD800) << 10) + (low - 0xDC00);
      ++at;
    }
    AppendUtf8(code_point, out);
  }
  return out;
}

std::u16string Utf8ToUtf16(std::string_view narrow) {
  std::u16string out;
  out.reserve(narrow.size());
  for (std::size_t at = 0; at < narrow.size();) {
    const char32_t code_point = NextCodePoint(narrow, at);
    if (code_point < 0x10000) {
      out += static_cast<char16_t>(code_point);
    } else {
      out += static_cast<char16_t>(0xD800 + ((code_point - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((code_point - 0x10000) & 0x3FF));
    }
  }
  return out;
}

std::string WideToUtf8(std::u16string_view wide) {
  return Utf16ToUtf8(wide)
      .or_else([](std::uint32_t code) {
        return tl::expected<std::string, std::uint32_t>(
            fmt::format("<WideCharToMultiByte Error: {}>", code));
      })
      .value();
}

tl::expected<std::string, std::uint32_t> TryPathToUtf8(const std::filesystem::path& path) {
  return NativeToUtf8(path.native());
}

std::string PathToUtf8(const std::filesystem::path& path) {
  return TryPathToUtf8(path)
      .or_else([](std::uint32_t code) {
        return tl::expected<std::string, std::uint32_t>(
            fmt::format("<WideChar->UTF8 Error: {}>", code));
      })
      .value();
}

std::filesystem::path PathFromUtf8(std::string_view narrow) {
  if constexpr (std::filesystem::path::preferred_separator == '/') {
    std::string portable(narrow);
    std::replace(portable.begin(), portable.end(), '\\', '/');
    return portable;
  } else {
    return Utf8ToUtf16(narrow);
  }
}

std::string ToLowerAscii(std::string_view text) {
  return LowerAscii(text);
}

std::u16string ToLowerAscii(std::u16string_view text) {
  return LowerAscii(text);
}

}  // namespace vosk::text
