// The report's sections on the C++ runtime and .NET, from what the Core uses to what the machine
// offers.
#pragma once

#include "report/host_info/process_module.h"
#include "report/host_info/section_context.h"

namespace vosk::report {

void WriteLoadedModules(const SectionContext& context, const ProcessModules& modules);
void WriteRedistributables(const SectionContext& context);
void WriteRuntimeLibraries(const SectionContext& context);
void WriteDotNetVersions(const SectionContext& context);

}  // namespace vosk::report
