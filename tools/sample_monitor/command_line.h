// The part of ProcDump's command line that the sample monitor understands:
//   -accepteula (-ma | -mc HEXMASK) -e PID DIRECTORY
#pragma once

#include <filesystem>
#include <optional>
#include <span>

namespace vosk::tools {

struct MonitorOptions {
  unsigned long dump_type = 0;  // a MINIDUMP_TYPE mask
  unsigned long pid = 0;
  std::filesystem::path directory;
};

// Returns nothing if the command line is incomplete or holds anything else.
std::optional<MonitorOptions> ParseCommandLine(std::span<const wchar_t* const> arguments);

}  // namespace vosk::tools
