#include "text/utf.h"

#include <gtest/gtest.h>

namespace vosk::text {
namespace {

using namespace std::string_literals;

// The first and last code point of each length of UTF-8 and their neighbours across the surrogates.
constexpr char32_t kEdges[] = {0x01,   0x7F,   0x80,   0x7FF,   0x800,   0xD7FF,
                               0xE000, 0xFFFD, 0xFFFF, 0x10000, 0x1F600, 0x10FFFF};

std::u16string Encode(char32_t code_point) {
  if (code_point < 0x10000) return {static_cast<char16_t>(code_point)};
  const char32_t bits = code_point - 0x10000;
  return {static_cast<char16_t>(0xD800 | bits >> 10),
          static_cast<char16_t>(0xDC00 | (bits & 0x3FF))};
}

TEST(Utf, EveryLengthSurvivesBothWays) {
  for (const char32_t code_point : kEdges) {
    const std::u16string wide = u"a" + Encode(code_point) + u"z";
    const auto narrow = Utf16ToUtf8(wide);
    ASSERT_TRUE(narrow) << std::hex << static_cast<std::uint32_t>(code_point);
    const std::size_t length = code_point < 0x80      ? 1
                               : code_point < 0x800   ? 2
                               : code_point < 0x10000 ? 3
                                                      : 4;
    EXPECT_EQ(narrow->size(), length + 2) << std::hex << static_cast<std::uint32_t>(code_point);
    EXPECT_EQ(Utf8ToUtf16(*narrow), wide) << std::hex << static_cast<std::uint32_t>(code_point);
  }
}

TEST(Utf, KnownTextsHaveTheirBytes) {
  EXPECT_EQ(Utf16ToUtf8(u"Gr\u00FC\u00DFe"),
            "Gr\xC3\xBC\xC3\x9F"
            "e");
  EXPECT_EQ(Utf16ToUtf8(u"\u65E5\u672C"), "\xE6\x97\xA5\xE6\x9C\xAC");
  EXPECT_EQ(Utf16ToUtf8(u"\U0001F600"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Utf16ToUtf8(u""), "");
  EXPECT_EQ(Utf8ToUtf16("a\0b"s), u"a\0b"s);
}

TEST(Utf, LoneSurrogatesGiveTheSystemsNumberOrAMarker) {
  for (const std::u16string& wide :
       {u"x\xD800"s, u"\xD800x"s, u"\xDC00x"s, u"\xD800\xD800\xDC00"s}) {
    EXPECT_EQ(Utf16ToUtf8(wide).error(), 1113u);
    EXPECT_EQ(WideToUtf8(wide), "<WideCharToMultiByte Error: 1113>");
  }
}

TEST(Utf, MalformedBytesBecomeReplacements) {
  const struct {
    std::string bytes;
    std::u16string wide;
  } rows[] = {
      {"a\x80z", u"a\uFFFDz"},                  // a continuation without a lead
      {"\xC3", u"\uFFFD"},                      // cut off
      {"\xE6\x97", u"\uFFFD\uFFFD"},            // cut off later
      {"\xC3(", u"\uFFFD("},                    // the next character is kept
      {"\xC0\xAF", u"\uFFFD\uFFFD"},            // an overlong slash
      {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},  // longer still
      {"\xF0\x80\x80\xAF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // past the last code point
      {"\xF5\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xFF", u"\uFFFD"},
      {"\xC3\xBC\xC3", u"\u00FC\uFFFD"},
  };
  for (const auto& row : rows) EXPECT_EQ(Utf8ToUtf16(row.bytes), row.wide) << row.bytes;
}

TEST(Utf, LowerCaseChangesAToZOnly) {
  EXPECT_EQ(ToLowerAscii("ProcDump64.EXE [@`{"), "procdump64.exe [@`{");
  EXPECT_EQ(ToLowerAscii(u"VELDRAN \u00C4\u0130"), u"veldran \u00C4\u0130");
}

TEST(Utf, BackslashesSeparatePathsOnEveryMachine) {
  const std::filesystem::path path = PathFromUtf8(R"(C:\VOSK\Gr)"
                                                  "\xC3\xBC\xC3\x9F"
                                                  "e.dmp");
  EXPECT_EQ(PathToUtf8(path.filename()),
            "Gr\xC3\xBC\xC3\x9F"
            "e.dmp");
  EXPECT_EQ(PathToUtf8(path.parent_path().filename()), "VOSK");
  EXPECT_EQ(TryPathToUtf8(path.filename()),
            "Gr\xC3\xBC\xC3\x9F"
            "e.dmp");
}

}  // namespace
}  // namespace vosk::text
