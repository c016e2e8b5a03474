// Plays ProcDump: attaches to a process as its debugger and writes a real minidump when it dies of
// an unhandled exception.
#include <cstddef>
#include <cstdio>
#include <optional>

#include "command_line.h"
#include "debug_session.h"

int wmain(int count, wchar_t** arguments) {
  const std::optional<vosk::tools::MonitorOptions> options =
      vosk::tools::ParseCommandLine({arguments + 1, static_cast<std::size_t>(count - 1)});
  if (!options) {
    std::fprintf(stderr, "usage: procdump64 -accepteula (-ma | -mc HEXMASK) -e PID DIRECTORY\n");
    return 2;
  }
  return vosk::tools::WatchUntilEnd(*options);
}
