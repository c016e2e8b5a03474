// Many short lives: each situation in situations/*.txt is a few lines of a life, and below them the
// lines in which its log differs from that of the file's first situation, which the stored lives
// have in full.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>

#include "tests/support/stored_text.h"
#include "tools/rehearsal/script.h"

namespace vosk::rehearsal {
namespace {

const std::filesystem::path kSituations = VOSK_TESTS_DIRECTORY "/rehearsal/situations";

// Returns "09:00:00 [INFO] text" without what only lengthens it.
std::string Short(std::string line) {
  static const std::pair<std::regex, std::string> kShorter[] = {
      {std::regex("\x1b\\[[0-9;]*m"), ""},
      {std::regex("^2025-03-01 "), ""},
      {std::regex("C:/Users/op/AppData/Local/Temp/VELDRAN_VOSK_Dumps"), "DUMPS"},
      {std::regex("C:/Program Files/VELDRAN Inc/VELDRAN Core"), "CORE"}};
  for (const auto& [long_text, short_text] : kShorter) {
    line = std::regex_replace(line, long_text, short_text);
  }
  return line;
}

std::string WithoutTime(const std::string& line) {
  return std::isdigit(static_cast<unsigned char>(line[0])) ? line.substr(line.find(' ')) : line;
}

std::vector<std::string> Told(std::string text) {
  if (text.find(" end\n") == std::string::npos) text += "09:01:00 end\n";
  const Script script(text);
  Life life;
  script.Apply(life);
  std::vector<std::string> told;
  life.witness.on_line = [&told](std::string_view line) {
    if (line.find(" running for: ") != std::string_view::npos || line.empty()) return;
    told.push_back(Short(std::string(line)));
  };
  life.Run(script.Length());
  std::istringstream end_state(life.EndState());
  for (std::string line; std::getline(end_state, line);) told.push_back("= " + Short(line));
  return told;
}

bool IsAmong(const std::string& line, const std::vector<std::string>& others) {
  return std::ranges::any_of(others, [text = WithoutTime(line)](const std::string& other) {
    return WithoutTime(other) == text;
  });
}

// Returns what distinguishes it from another life: its own lines, then those that only the other
// has.
std::string Difference(const std::vector<std::string>& told,
                       const std::vector<std::string>& basis) {
  std::string text;
  std::string before;
  int times = 1;
  const auto close = [&] {
    if (times > 1) text += fmt::format("    ({} times)\n", times);
    times = 1;
  };
  for (const std::string& line : told) {
    if (IsAmong(line, basis)) continue;
    if (WithoutTime(line) == before) {
      ++times;
      continue;
    }
    close();
    before = WithoutTime(line);
    text += line + '\n';
  }
  close();
  constexpr int kMostListed = 4;
  int missing = 0;
  for (const std::string& line : basis) {
    if (!IsAmong(line, told) && ++missing <= kMostListed) text += "- " + line + '\n';
  }
  return text +
         (missing > kMostListed ? fmt::format("- and {} more\n", missing - kMostListed) : "");
}

// Reads stored situations and writes them with what is logged now.
std::string Replayed(std::istream& stored) {
  std::vector<std::string> basis;
  std::string text;
  std::string script;
  bool answer = false;
  for (std::string line; std::getline(stored, line);) {
    if (line == "->") {
      const auto told = Told(script);
      text += "->\n" + (basis.empty() ? "" : Difference(told, basis));
      if (basis.empty()) basis = told;
      script.clear();
      answer = true;
    } else if (line.starts_with("## ")) {
      text += (answer ? "\n" : "") + line + '\n';
      answer = false;
    } else if (!answer) {
      text += line + '\n';
      script += line + '\n';
    }
  }
  return text;
}

std::vector<std::string> Names() {
  std::vector<std::string> names;
  for (const auto& file : std::filesystem::directory_iterator(kSituations)) {
    names.push_back(file.path().stem().string());
  }
  return names;
}

class Situations : public testing::TestWithParam<std::string> {};

TEST_P(Situations, AreToldAsStored) {
  std::ifstream stored(kSituations / (GetParam() + ".txt"));
  support::ExpectStoredText("rehearsal/situations/" + GetParam() + ".txt", Replayed(stored));
}

INSTANTIATE_TEST_SUITE_P(All, Situations, testing::ValuesIn(Names()),
                         [](const auto& situation) { return situation.param; });

}  // namespace
}  // namespace vosk::rehearsal
