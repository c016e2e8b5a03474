#include "console/display_text.h"

#include <algorithm>
#include <iterator>

#include "text/utf.h"

namespace vosk::console {
namespace {

constexpr char kEscape = '\x1b';
constexpr char kBell = '\a';

struct CodePoints {
  char32_t first;
  char32_t last;
};

// Marks that join the character before them, and characters that show nothing.
constexpr CodePoints kNoColumn[] = {
    {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x064B, 0x065F}, {0x1AB0, 0x1AFF},
    {0x1DC0, 0x1DFF}, {0x200B, 0x200F}, {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F},
};

// East Asian wide and full-width characters, and pictures.
constexpr CodePoints kTwoColumns[] = {
    {0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97F},
    {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF01, 0xFF60},
    {0xFFE0, 0xFFE6},   {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF},
    {0x20000, 0x3FFFD},
};

template <std::size_t count>
bool Contains(const CodePoints (&ranges)[count], char32_t code_point) {
  return std::any_of(std::begin(ranges), std::end(ranges), [code_point](const CodePoints& range) {
    return code_point >= range.first && code_point <= range.last;
  });
}

int ColumnsOf(char32_t code_point) {
  if (code_point < 0x300) return 1;
  if (Contains(kNoColumn, code_point)) return 0;
  return Contains(kTwoColumns, code_point) ? 2 : 1;
}

bool IsBetween(char c, char first, char last) {
  return c >= first && c <= last;
}

// Returns the position after the bytes from `first` to `last`; stops at the end of the text.
std::size_t SkipBetween(std::string_view text, std::size_t at, char first, char last) {
  while (at < text.size() && IsBetween(text[at], first, last)) ++at;
  return at;
}

// A string sequence (a window title, for example) ends with a bell or with ESC "\".
std::size_t SkipStringSequence(std::string_view text, std::size_t at) {
  while (at < text.size()) {
    const char c = text[at++];
    if (c == kBell) return at;
    if (c == kEscape) return std::min(at + 1, text.size());
  }
  return at;
}

// Returns the position after the escape sequence that starts at `at`. A byte that cannot belong to
// the sequence ends it and stays in the text.
std::size_t SkipSequence(std::string_view text, std::size_t at) {
  if (++at == text.size()) return at;
  if (std::string_view("]PX^_").find(text[at]) != std::string_view::npos) {
    return SkipStringSequence(text, at + 1);
  }
  const bool control_sequence = text[at] == '[';
  if (control_sequence) {
    at = SkipBetween(text, at + 1, ' ', '?');
  } else {
    at = SkipBetween(text, at, ' ', '/');
  }
  const char first_final = control_sequence ? '@' : '0';
  return at < text.size() && IsBetween(text[at], first_final, '~') ? at + 1 : at;
}

bool IsControl(char32_t code_point) {
  return code_point < 0x20 || (code_point >= 0x7F && code_point < 0xA0);
}

}  // namespace

std::string PlainText(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == kEscape) {
      at = SkipSequence(text, at);
      continue;
    }
    const char32_t code_point = text::NextCodePoint(text, at);
    if (code_point == '\t' || code_point == '\n' || code_point == '\r') {
      plain += ' ';
    } else if (!IsControl(code_point)) {
      text::AppendUtf8(code_point, plain);
    }
  }
  return plain;
}

int DisplayWidth(std::string_view text) {
  int columns = 0;
  for (std::size_t at = 0; at < text.size();) columns += ColumnsOf(text::NextCodePoint(text, at));
  return columns;
}

std::string_view ClipToWidth(std::string_view text, int columns) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    columns -= ColumnsOf(text::NextCodePoint(text, at));
    if (columns < 0) return text.substr(0, start);
  }
  return text;
}

}  // namespace vosk::console
