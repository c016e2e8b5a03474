// The Windows side of each interface of the platform.
#pragma once

#include <memory>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/dump_writer.h"
#include "platform/files.h"
#include "platform/installer.h"
#include "platform/machine.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/system.h"

namespace vosk::platform::windows {

[[nodiscard]] std::unique_ptr<Clock> MakeClock();
[[nodiscard]] std::unique_ptr<Console> MakeConsole();
[[nodiscard]] std::unique_ptr<DumpWriter> MakeDumpWriter();
[[nodiscard]] std::unique_ptr<Files> MakeFiles();
[[nodiscard]] std::unique_ptr<Installer> MakeInstaller();
[[nodiscard]] std::unique_ptr<Machine> MakeMachine();
[[nodiscard]] std::unique_ptr<Processes> MakeProcesses();
[[nodiscard]] std::unique_ptr<Registry> MakeRegistry();
[[nodiscard]] std::unique_ptr<System> MakeSystem();

}  // namespace vosk::platform::windows
