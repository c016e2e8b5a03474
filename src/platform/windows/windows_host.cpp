#include "platform/windows/windows_host.h"

#include "platform/windows/parts.h"

namespace vosk::platform::windows {

WindowsHost::WindowsHost()
    : clock_(MakeClock()),
      console_(MakeConsole()),
      dump_writer_(MakeDumpWriter()),
      files_(MakeFiles()),
      processes_(MakeProcesses()),
      system_(MakeSystem()) {}

WindowsHost::~WindowsHost() = default;

Host WindowsHost::Bundle() {
  return {*clock_, *console_, *dump_writer_, *files_, *processes_, *system_};
}

}  // namespace vosk::platform::windows
