// The report's sections on network interfaces and NAT.
#pragma once

#include <vector>

#include "platform/machine.h"
#include "report/host_info/section_context.h"

namespace vosk::report {

// Returns the adapters for the section on NAT; none if they could not be listed.
[[nodiscard]] std::vector<platform::NetworkAdapter> WriteNetworkInterfaces(
    const SectionContext& context);
void WriteNatStatus(const SectionContext& context,
                    const std::vector<platform::NetworkAdapter>& adapters);

}  // namespace vosk::report
