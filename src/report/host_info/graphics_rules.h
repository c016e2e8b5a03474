// What the report concludes from the description of a graphics adapter.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine.h"

namespace vosk::report {

[[nodiscard]] std::string AdapterClass(const platform::GraphicsDescription& adapter);
// A Direct3D feature level by name ("DirectX 11.1"); "Unknown" for those before and between.
[[nodiscard]] std::string FeatureLevelName(std::uint32_t level);
[[nodiscard]] std::string FormatLuid(const platform::LocallyUniqueId& luid);

}  // namespace vosk::report
