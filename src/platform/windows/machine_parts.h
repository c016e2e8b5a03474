// The larger parts of Windows' side of the machine.
#pragma once

#include <memory>

#include "platform/machine.h"

namespace vosk::platform::windows {

[[nodiscard]] Result<std::unique_ptr<GraphicsAdapters>> OpenDxgi();
[[nodiscard]] Result<std::unique_ptr<NetworkSession>> OpenWinsock();

}  // namespace vosk::platform::windows
