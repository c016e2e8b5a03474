// The report's sections on the operating system and the hardware.
#pragma once

#include "report/host_info/section_context.h"

namespace vosk::report {

void WriteOperatingSystem(const SectionContext& context);
void WriteHardware(const SectionContext& context);

}  // namespace vosk::report
