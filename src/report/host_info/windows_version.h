// The report's section on the version of Windows.
#pragma once

#include "report/host_info/section_context.h"

namespace vosk::report {

void WriteWindowsVersion(const SectionContext& context);

}  // namespace vosk::report
