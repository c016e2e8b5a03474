// What the report concludes from names of modules and from the .NET set-up key.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "report/host_info/process_module.h"

namespace vosk::report {

// Whether a module (a file name in any case) belongs to the C++ runtime or the base of the system.
[[nodiscard]] bool IsRuntimeModule(std::string_view file_name);
// The line that names the Visual C++ runtime among the modules of a process.
[[nodiscard]] std::string DetectRuntime(std::span<const ProcessModule> modules);
// The .NET Framework 4 version that a release number stands for.
[[nodiscard]] std::string DotNetName(std::uint32_t release);
// Whether a sub-key of the .NET set-up key stands for a version before 4.
[[nodiscard]] bool IsOlderDotNetKey(std::string_view key);

}  // namespace vosk::report
