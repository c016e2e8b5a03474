#include "simulation/log_recorder.h"

#include <sstream>

namespace vosk::simulation {
namespace {

// Returns "2025-03-01 09:00:00 [WARN] text" without its date and time.
std::string WithoutStamp(const std::string& line) {
  constexpr std::size_t kStamp = 20;
  return line.size() > kStamp && line[kStamp] == '[' && line[4] == '-' ? line.substr(kStamp) : line;
}

}  // namespace

LogText LogOf(const SimulatedHost& host) {
  LogText lines;
  std::istringstream log(SimulatedHost::ReadFile(host.LogFile()));
  for (std::string line; std::getline(log, line);) lines.push_back(WithoutStamp(line));
  return lines;
}

LogRecorder::LogRecorder(SimulatedHost& host)
    : host_(host), sink_(host.console, host.files, host.system, host.clock, menu_visible) {
  sink_.OpenLogFile();
  lines_before_ = LogOf(host).size();
}

LogText LogRecorder::Lines() const {
  LogText lines = LogOf(host_);
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(lines_before_));
  return lines;
}

}  // namespace vosk::simulation
