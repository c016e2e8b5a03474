// Which Windows it is: its name, edition and product type.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine.h"

namespace vosk::report {

[[nodiscard]] std::string WindowsName(const platform::WindowsVersion& version);
// Returns the edition with a blank in front (" Pro"), as the label expects it.
[[nodiscard]] std::string WindowsEdition(std::uint32_t product_type, std::uint32_t product_code);
[[nodiscard]] std::string ProductTypeName(std::uint32_t product_type);

}  // namespace vosk::report
