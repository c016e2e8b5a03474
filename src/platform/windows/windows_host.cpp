#include "platform/windows/windows_host.h"

#include "platform/windows/parts.h"

namespace vosk::platform::windows {

WindowsHost::WindowsHost()
    : clock_(MakeClock()),
      console_(MakeConsole()),
      dump_writer_(MakeDumpWriter()),
      files_(MakeFiles()),
      installer_(MakeInstaller()),
      machine_(MakeMachine()),
      processes_(MakeProcesses()),
      registry_(MakeRegistry()),
      system_(MakeSystem()) {}

WindowsHost::~WindowsHost() = default;

Host WindowsHost::Bundle() {
  return {*clock_,   *console_,   *dump_writer_, *files_, *installer_,
          *machine_, *processes_, *registry_,    *system_};
}

}  // namespace vosk::platform::windows
