#include "tests/support/transcript.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <vector>

#include "simulation/log_recorder.h"
#include "tests/support/stored_text.h"

namespace vosk::support {
namespace {

using simulation::FaultKind;
using simulation::FaultRule;
using Lines = std::vector<std::string>;

struct Run {
  Lines lines;        // the log, then how it ended
  std::string fault;  // which call failed; empty if none did
};

struct Way {
  std::string name;
  FaultRule rule;
};

std::vector<Way> WaysToFail() {
  return {{"fails", {.kind = FaultKind::fails}},
          {"fails otherwise", {.kind = FaultKind::fails, .alternative = 1}},
          {"fails after its effect", {.kind = FaultKind::fails_after_effect}},
          {"breaks while it is read", {.kind = FaultKind::broken_stream}}};
}

void AppendLines(Lines& lines, const std::string& text) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
}

Run RunOnce(const TranscribedScene& scene, const std::optional<Way>& way) {
  simulation::SimulatedHost host;
  scene.arrange(host);
  simulation::LogRecorder log(host);
  if (way) host.choke.faults.Add(way->rule);
  std::string end;
  try {
    end = scene.act(host, log.Sink());
  } catch (const simulation::BudgetExceeded& excess) {
    end = "never ends: " + excess.reason;
  } catch (const std::exception& escaped) {
    end = std::string("throws ") + escaped.what();
  }
  host.choke.faults.Clear();
  Run run{.lines = log.Lines(), .fault = {}};
  AppendLines(run.lines, "= " + end);
  for (const std::string& leftover : host.Leftovers()) run.lines.push_back("= " + leftover);
  if (const auto& fired = host.choke.faults.Fired(); way && !fired.empty()) {
    const auto& [operation, subject, fault] = fired.front();
    run.fault = fmt::format("{} {} {}", operation, subject, way->name);
    if (fault.code != 0) run.fault += fmt::format(" ({})", fault.code);
  }
  return run;
}

// Returns the lines that only one of the two has, in their order: "- " from the first, "+ " from
// the second.
Lines Difference(const Lines& before, const Lines& after) {
  const std::size_t rows = before.size();
  const std::size_t columns = after.size();
  std::vector<std::vector<std::size_t>> common(rows + 1, std::vector<std::size_t>(columns + 1));
  for (std::size_t row = rows; row-- > 0;) {
    for (std::size_t column = columns; column-- > 0;) {
      common[row][column] = before[row] == after[column]
                                ? common[row + 1][column + 1] + 1
                                : std::max(common[row + 1][column], common[row][column + 1]);
    }
  }
  Lines lines;
  std::size_t row = 0;
  std::size_t column = 0;
  while (row < rows || column < columns) {
    if (row < rows && column < columns && before[row] == after[column]) {
      ++row;
      ++column;
    } else if (column == columns ||
               (row < rows && common[row + 1][column] >= common[row][column + 1])) {
      lines.push_back("- " + before[row++]);
    } else {
      lines.push_back("+ " + after[column++]);
    }
  }
  return lines;
}

}  // namespace

void ExpectFaultTranscript(const std::filesystem::path& file, const TranscribedScene& scene) {
  const Run clean = RunOnce(scene, std::nullopt);
  std::string text = "nothing fails\n";
  for (const std::string& line : clean.lines) text += "  " + line + '\n';
  std::vector<std::pair<Lines, Lines>> entries;  // what differs, and for which calls
  for (Way way : WaysToFail()) {
    for (way.rule.first = 1;; ++way.rule.first) {
      const Run run = RunOnce(scene, way);
      if (run.fault.empty()) break;
      const Lines difference = Difference(clean.lines, run.lines);
      const auto known = std::ranges::find(entries, difference, &std::pair<Lines, Lines>::first);
      if (known == entries.end()) {
        entries.push_back({difference, {run.fault}});
      } else if (std::ranges::find(known->second, run.fault) == known->second.end()) {
        known->second.push_back(run.fault);
      }
    }
  }
  for (const auto& [difference, faults] : entries) {
    text += '\n';
    for (const std::string& fault : faults) text += fault + '\n';
    if (difference.empty()) text += "  makes no difference\n";
    for (const std::string& line : difference) text += "  " + line + '\n';
  }
  ExpectStoredText(file, text);
}

}  // namespace vosk::support
