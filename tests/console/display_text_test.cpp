#include "console/display_text.h"

#include <gtest/gtest.h>

#include "tests/support/terminal.h"

namespace vosk::console {
namespace {

using namespace std::string_literals;

TEST(PlainText, DropsEscapeSequencesAndControls) {
  struct {
    std::string text;
    std::string plain;
  } const rows[] = {
      {"", ""},
      {"plain", "plain"},
      {"\x1b[90m09:00:00\x1b[0m", "09:00:00"},
      {"\x1b[1m\x1b[38;2;1;2;3mx\x1b[?25ly", "xy"},
      {"\x1b]0;a title\ax", "x"},
      {"\x1b]0;a title\x1b\\x", "x"},
      {"\x1b(Bx\x1b"
       "7y",
       "xy"},
      {"a\tb\r\nc", "a b  c"},
      {"a\a\b\x7f"
       "b\0c"s,
       "abc"},
      {"a\xc2\x9b"
       "b",
       "ab"},  // a control of the second set, in UTF-8
      // Cut off in the middle of a sequence.
      {"x\x1b", "x"},
      {"x\x1b[", "x"},
      {"x\x1b[12;", "x"},
      {"x\x1b]0;title", "x"},
      {"x\x1b]0;title\x1b", "x"},
      // What cannot belong to the sequence ends it and stays.
      {"\x1b[31\u00fcx", "\u00fcx"},
      {"\x1b[31\x1b[0mx", "x"},
      {"\x1b\u00fcx", "\u00fcx"},
      {"gr\u00fc\u00df dich", "gr\u00fc\u00df dich"},
      {"a\xff"
       "b\xe4\xb8",
       "a\ufffd"
       "b\ufffd\ufffd"},
  };
  for (const auto& row : rows) EXPECT_EQ(PlainText(row.text), row.plain) << row.text;
}

TEST(DisplayWidth, AgreesWithATerminal) {
  for (const std::string text :
       {"plain text", "gr\u00fc\u00df dich", "e\u0301tude", "\u6f22\u5b57", "\uac00\ub098",
        "\uff21\uff22", "\u2588\u2550\u2551", "\u0416\u03a9", "a\u200bb", "\U00020000",
        "\u3042\u30a2", "\ufffd"}) {
    support::Terminal terminal(40, 1);
    terminal.Write(text);
    EXPECT_EQ(DisplayWidth(text), terminal.CursorColumn() - 1) << text;
  }
}

TEST(ClipToWidth, NeverSplitsACharacter) {
  struct {
    std::string text;
    int columns;
    std::string clipped;
  } const rows[] = {
      {"abc", 4, "abc"},
      {"abc", 3, "abc"},
      {"abc", 2, "ab"},
      {"abc", 0, ""},
      {"abc", -5, ""},
      {"gr\u00fc\u00df", 3, "gr\u00fc"},
      {"\u6f22\u5b57", 4, "\u6f22\u5b57"},
      {"\u6f22\u5b57", 3, "\u6f22"},
      {"\u6f22\u5b57", 1, ""},
      {"e\u0301a", 1, "e\u0301"},  // a mark stays with its letter
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ClipToWidth(row.text, row.columns), row.clipped) << row.text << ' ' << row.columns;
  }
}

}  // namespace
}  // namespace vosk::console
