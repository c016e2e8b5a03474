#include "text/remote_text.h"

#include <gtest/gtest.h>

namespace vosk::text {
namespace {

TEST(RemoteText, KeepsWhatIsHarmless) {
  struct Row {
    std::string text, value, lines;
  };
  const std::string no = "\uFFFD";
  const Row rows[] = {
      {"\tK\u00f6ln \u65e5\u672c \U0001f600 ~", "\tK\u00f6ln \u65e5\u672c \U0001f600 ~",
       "\tK\u00f6ln \u65e5\u672c \U0001f600 ~"},
      {"a\r\nb\n", "a" + no + no + "b" + no, "a\r\nb\n"},
      // To the beginning of the line, and on over it.
      {"a\rb\r", "a" + no + "b" + no, "a" + no + "b" + no},
      {std::string("\0\x01\x1b[2J\x1f\x7f", 8), no + no + no + "[2J" + no + no,
       no + no + no + "[2J" + no + no},
      // The controls of eight bits, as UTF-8 and alone.
      {"\u0080\u009b6n\u009f\u00a0", no + no + "6n" + no + "\u00a0",
       no + no + "6n" + no + "\u00a0"},
      {"\x9b"
       "6n\xff",
       no + "6n" + no, no + "6n" + no},
  };
  for (const auto& [text, value, lines] : rows) {
    EXPECT_EQ(RemoteValue(text), value);
    EXPECT_EQ(RemoteBody(text), lines);
    EXPECT_EQ(RemoteHeaders(text), lines);
  }
}

TEST(RemoteText, IsCutBetweenCharacters) {
  const std::string body(4'096, 'x');
  const std::string headers(16'384, 'x');
  EXPECT_EQ(RemoteValue(body), body);
  EXPECT_EQ(RemoteBody(body), body);
  EXPECT_EQ(RemoteHeaders(headers), headers);
  EXPECT_EQ(RemoteValue(body + "x"), body + "... (1 bytes left out)");
  EXPECT_EQ(RemoteBody(body + headers), body + "... (16384 bytes left out)");
  EXPECT_EQ(RemoteBody(body.substr(1) + "\u00f6x"), body.substr(1) + "... (3 bytes left out)");
  EXPECT_EQ(RemoteHeaders(headers + "xy"), headers + "... (2 bytes left out)");
}

}  // namespace
}  // namespace vosk::text
