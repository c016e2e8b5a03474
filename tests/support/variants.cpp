#include "tests/support/variants.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "tests/support/stored_text.h"

namespace vosk::support {
namespace {

using simulation::LogText;

// Bytes that are not ASCII are spelled out, so that the stored text stays readable.
std::string Line(std::string_view mark, const std::string& line) {
  std::string text = fmt::format("  {}", mark);
  for (const char c : line) text += c > 0 ? std::string(1, c) : fmt::format("\\x{:02x}", c & 0xff);
  return text + '\n';
}

// Counts how many lines of both agree from there on, in their order.
class Agreement {
 public:
  Agreement(const LogText& before, const LogText& after)
      : columns_(after.size() + 1), lengths_((before.size() + 1) * columns_) {
    for (std::size_t row = before.size(); row-- > 0;) {
      for (std::size_t column = after.size(); column-- > 0;) {
        lengths_[row * columns_ + column] =
            before[row] == after[column] ? From(row + 1, column + 1) + 1
                                         : std::max(From(row + 1, column), From(row, column + 1));
      }
    }
  }
  [[nodiscard]] std::size_t From(std::size_t row, std::size_t column) const {
    return lengths_[row * columns_ + column];
  }

 private:
  std::size_t columns_;
  std::vector<std::size_t> lengths_;
};

std::string Difference(const LogText& before, const LogText& after) {
  const Agreement agreement(before, after);
  std::string text;
  std::size_t row = 0;
  std::size_t column = 0;
  while (row < before.size() || column < after.size()) {
    std::size_t missing = row;
    while (missing < before.size() &&
           agreement.From(missing + 1, column) == agreement.From(row, column)) {
      ++missing;
    }
    if (missing > row) text += Line("- ", before[row]);
    if (missing > row + 1) text += fmt::format("  - ... {} more\n", missing - row - 1);
    row = missing;
    while (column < after.size() && (row == before.size() || before[row] != after[column])) {
      text += Line("+ ", after[column++]);
    }
    while (row < before.size() && column < after.size() && before[row] == after[column]) {
      ++row;
      ++column;
    }
  }
  return text;
}

}  // namespace

void Variants::Add(const std::string& name, LogText log, const std::string& end) {
  std::istringstream stream(end);
  for (std::string line; std::getline(stream, line);) log.push_back("= " + line);
  text_ += fmt::format("{}{}\n", text_.empty() ? "" : "\n", name);
  if (!first_.empty()) {
    text_ += Difference(first_, log);
    return;
  }
  first_ = std::move(log);
  for (const std::string& line : first_) text_ += Line("", line);
}

void Variants::Expect(const std::filesystem::path& file) const {
  ExpectStoredText(file, text_);
}

}  // namespace vosk::support
