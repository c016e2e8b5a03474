#include "text/utf.h"

#include <gtest/gtest.h>

namespace vosk::text {
namespace {

using namespace std::string_literals;

TEST(Utf, EveryLengthHasItsBytesBothWays) {
  const std::pair<std::u16string, std::string> rows[] = {
      {u"", ""},
      {u"a\0b"s, "a\0b"s},
      {u"Gr\u00FC\u00DFe", "Gr\303\274\303\237e"},
      // The first and last code point of each length, and the neighbours of the surrogates.
      {u"\u007F\u0080\u07FF", "\x7F\xC2\x80\xDF\xBF"},
      {u"\u0800\uD7FF\uE000\uFFFF", "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
      {u"\U00010000\U0001F600", "\xF0\x90\x80\x80\xF0\x9F\x98\x80"},
      {u"\U0010FFFFz", "\xF4\x8F\xBF\xBFz"},
  };
  for (const auto& [wide, narrow] : rows) {
    EXPECT_EQ(Utf16ToUtf8(wide), narrow);
    EXPECT_EQ(Utf8ToUtf16(narrow), wide) << narrow;
  }
}

TEST(Utf, LoneSurrogatesGiveTheSystemsNumberOrAMarker) {
  for (const std::u16string& wide :
       {u"x\xD800"s, u"\xD800x"s, u"\xDC00x"s, u"\xD800\xD800\xDC00"s, u"\xD800\xE000"s}) {
    EXPECT_EQ(Utf16ToUtf8(wide).error(), 1113u);
    EXPECT_EQ(WideToUtf8(wide), "<WideCharToMultiByte Error: 1113>");
  }
}

TEST(Utf, MalformedBytesBecomeReplacements) {
  const std::pair<std::string, std::u16string> rows[] = {
      {"a\x80z", u"a\uFFFDz"},                  // a continuation byte without a lead byte
      {"\xC3", u"\uFFFD"},                      // cut off
      {"\xE6\x97", u"\uFFFD\uFFFD"},            // cut off later
      {"\xC3(", u"\uFFFD("},                    // the next character is kept
      {"\xC1\xBF", u"\uFFFD\uFFFD"},            // overlong
      {"\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD"},  // longer still
      {"\xF0\x8F\xBF\xBF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // the first surrogate
      {"\xED\xBF\xBF", u"\uFFFD\uFFFD\uFFFD"},            // and the last
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // past the last code point
      {"\xF5\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xC3\xBC\xC3", u"\u00FC\uFFFD"},
  };
  for (const auto& [bytes, wide] : rows) EXPECT_EQ(Utf8ToUtf16(bytes), wide) << bytes;
}

TEST(Utf, LowerCaseChangesAToZOnly) {
  EXPECT_EQ(ToLowerAscii("ProcDump64.EXE AZ[@`{"), "procdump64.exe az[@`{");
  EXPECT_EQ(ToLowerAscii(u"VELDRAN \u00C4\u0130"), u"veldran \u00C4\u0130");
}

TEST(Utf, BackslashesSeparatePathsOnEveryMachine) {
  const std::filesystem::path path = PathFromUtf8("C:\\VOSK\\Gr\303\274\303\237e.dmp");
  EXPECT_EQ(PathToUtf8(path.filename()), "Gr\303\274\303\237e.dmp");
  EXPECT_EQ(PathToUtf8(path.parent_path().filename()), "VOSK");
}

}  // namespace
}  // namespace vosk::text
