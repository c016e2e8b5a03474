// What the report concludes from the description of a graphics adapter.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine.h"

namespace vosk::report {

[[nodiscard]] std::string AdapterClass(const platform::GraphicsDescription& adapter);
// Returns the name of a Direct3D feature level ("DirectX 11.1"), or "Unknown".
[[nodiscard]] std::string FeatureLevelName(std::uint32_t level);
[[nodiscard]] std::string FormatLuid(const platform::LocallyUniqueId& luid);

}  // namespace vosk::report
