#include "text/remote_text.h"

#include <fmt/format.h>

#include "text/utf.h"

namespace vosk::text {
namespace {

constexpr std::size_t kLongestBody = 4'096;
constexpr std::size_t kLongestHeaders = 16'384;

enum class LineEnds { replaced, kept };

bool IsControl(char32_t code_point) {
  return code_point < 0x20 || (code_point >= 0x7F && code_point < 0xA0);
}

// A carriage return alone would go back to the beginning of a line that has been written.
bool IsLineEnd(std::string_view text) {
  return text.starts_with('\n') || text.starts_with("\r\n");
}

std::string Harmless(std::string_view text, LineEnds line_ends, std::size_t most_bytes) {
  constexpr char32_t kReplacement = 0xFFFD;
  std::string out;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t start = at;
    const char32_t code_point = NextCodePoint(text, at);
    if (at > most_bytes) {
      return out + fmt::format("... ({} bytes left out)", text.size() - start);
    }
    const bool kept = !IsControl(code_point) || code_point == U'\t' ||
                      (line_ends == LineEnds::kept && IsLineEnd(text.substr(start)));
    AppendUtf8(kept ? code_point : kReplacement, out);
  }
  return out;
}

}  // namespace

std::string RemoteValue(std::string_view text) {
  return Harmless(text, LineEnds::replaced, kLongestBody);
}

std::string RemoteBody(std::string_view text) {
  return Harmless(text, LineEnds::kept, kLongestBody);
}

std::string RemoteHeaders(std::string_view text) {
  return Harmless(text, LineEnds::kept, kLongestHeaders);
}

}  // namespace vosk::text
