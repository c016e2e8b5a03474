// The report's head: when it was made, by which version, on which machine.
#pragma once

#include <ctime>
#include <string>

#include "report/host_info/section_context.h"

namespace vosk::report {

void WriteTimes(const SectionContext& context, std::time_t now, const std::tm& local_time);
// An empty version of VOSK is written as "0.0.0"; version "" or "0.0.0" of the Core means that it
// was not detected.
void WriteVersions(const SectionContext& context, const std::string& vosk_version,
                   const std::string& core_version);
void WriteHostname(const SectionContext& context);

}  // namespace vosk::report
