// What the report concludes from names of modules and from the .NET set-up key.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "report/host_info/process_module.h"

namespace vosk::report {

// Returns whether a module (a file name in any case) belongs to the C++ runtime or the base of the
// system.
[[nodiscard]] bool IsRuntimeModule(std::string_view file_name);
// Returns the line that names the Visual C++ runtime among the modules of a process.
[[nodiscard]] std::string DetectRuntime(std::span<const ProcessModule> modules);
// Returns the .NET Framework 4 version with this release number.
[[nodiscard]] std::string DotNetName(std::uint32_t release);
// Returns whether a sub-key of the .NET set-up key belongs to a version before 4.
[[nodiscard]] bool IsOlderDotNetKey(std::string_view key);

}  // namespace vosk::report
