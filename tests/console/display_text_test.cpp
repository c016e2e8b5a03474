#include "console/display_text.h"

#include <gtest/gtest.h>

#include "console/uptime.h"
#include "tests/support/terminal.h"

namespace vosk::console {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

TEST(PlainText, DropsEscapeSequencesAndControls) {
  const std::pair<std::string, std::string> rows[] = {
      {"\x1b[90m09:00:00\x1b[0m", "09:00:00"},
      {"\x1b[1m\x1b[38;2;1;2;3mx\x1b[?25ly", "xy"},
      {"\x1b]0;a title\ax", "x"},
      {"\x1b]0;a title\x1b\\x", "x"},
      {"\x1b(Bx\0337y", "xy"},
      {"a\tb\r\nc", "a b  c"},
      {"a\a\b\177b\0c"s, "abc"},
      {"a\302\233b", "ab"},  // a C1 control character, in UTF-8
      // Cut off in the middle of a sequence.
      {"x\x1b", "x"},
      {"x\x1b[", "x"},
      {"x\x1b[12;", "x"},
      {"x\x1b]0;title", "x"},
      {"x\x1b]0;title\x1b", "x"},
      // A byte that cannot belong to the sequence ends it and stays.
      {"\x1b[31\u00fcx", "\u00fcx"},
      {"\x1b[31\x1b[0mx", "x"},
      {"\x1b\u00fcx", "\u00fcx"},
      {"gr\u00fc\u00df dich", "gr\u00fc\u00df dich"},
  };
  for (const auto& [text, plain] : rows) EXPECT_EQ(PlainText(text), plain) << text;
}

TEST(DisplayWidth, AgreesWithATerminal) {
  for (const std::string text :
       {"plain text", "gr\u00fc\u00df dich", "e\u0301tude", "\u6f22\u5b57", "\uac00\ub098",
        "\uff21\uff22", "\u2588\u2550\u2551", "\u0416\u03a9", "a\u200bb", "\U00020000",
        "\u3042\u30a2", "\uff60\u115f", "\ufffd"}) {
    support::Terminal terminal(40, 1);
    terminal.Write(text);
    EXPECT_EQ(DisplayWidth(text), terminal.CursorColumn() - 1) << text;
  }
}

TEST(ClipToWidth, NeverSplitsACharacter) {
  const std::tuple<std::string, int, std::string> rows[] = {
      {"abc", 3, "abc"},
      {"abc", 2, "ab"},
      {"abc", -5, ""},
      {"\u6f22\u5b57", 4, "\u6f22\u5b57"},
      {"\u6f22\u5b57", 3, "\u6f22"},
      {"e\u0301a", 1, "e\u0301"},  // a mark stays with its letter
  };
  for (const auto& [text, columns, clipped] : rows) {
    EXPECT_EQ(ClipToWidth(text, columns), clipped) << text << ' ' << columns;
  }
}

TEST(FormatUptime, LeavesOutLeadingZeroUnits) {
  const std::pair<std::chrono::steady_clock::duration, std::string> rows[] = {
      {0s, "0s"},           {59s + 999ms, "59s"},
      {1min, "1m 0s"},      {59min + 59s, "59m 59s"},
      {1h, "1h 0m 0s"},     {24h - 1s, "23h 59m 59s"},
      {24h, "1d 0h 0m 0s"}, {400 * 24h + 23h + 5min + 3s, "400d 23h 5m 3s"},
  };
  for (const auto& [uptime, text] : rows) EXPECT_EQ(FormatUptime(uptime), text);
}

}  // namespace
}  // namespace vosk::console
