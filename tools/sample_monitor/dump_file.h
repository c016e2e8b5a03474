#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

#include "command_line.h"

namespace vosk::tools {

// The exception of one thread of the target, which is stopped in the debugger at that point.
struct StoppedThread {
  DWORD id = 0;
  EXCEPTION_RECORD exception{};
};

// Writes "<image name>_YYMMDD_HHMMSS.dmp" (local time) with the exception into the directory of
// `options`. Prints the path, or prints the system's error code and returns false.
bool WriteDump(HANDLE process, const std::wstring& image_name, StoppedThread thread,
               const MonitorOptions& options);

}  // namespace vosk::tools
