// Stands in for ProcDump: attaches to a process as its debugger and writes a real minidump when it
// dies of an unhandled exception.
//
// A file "monitor_behaviour.txt" beside the executable turns it into a bad monitor for a test; it
// holds one of the words two_dumps, no_dump, exit_at_once.
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "command_line.h"
#include "debug_session.h"

namespace {

std::string BehaviourWord() {
  wchar_t path[MAX_PATH] = L"";
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::ifstream file(std::filesystem::path(path).parent_path() / "monitor_behaviour.txt");
  std::string word;
  file >> word;
  return word;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  using vosk::tools::Behaviour;
  const std::optional<vosk::tools::MonitorOptions> options =
      vosk::tools::ParseCommandLine({arguments + 1, static_cast<std::size_t>(count - 1)});
  if (!options) {
    std::fprintf(stderr, "usage: procdump64 -accepteula (-ma | -mc HEXMASK) -e PID DIRECTORY\n");
    return 2;
  }
  const std::string word = BehaviourWord();
  if (word == "exit_at_once") return 1;
  const Behaviour behaviour = word == "two_dumps" ? Behaviour::kTwoDumps
                              : word == "no_dump" ? Behaviour::kNoDump
                                                  : Behaviour::kOneDump;
  return vosk::tools::WatchUntilEnd(*options, behaviour);
}
