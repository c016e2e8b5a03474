// Network adapters through Winsock and IP Helper.
#pragma once

#include <memory>

#include "platform/machine.h"

namespace vosk::platform::windows {

[[nodiscard]] Result<std::unique_ptr<NetworkSession>> OpenWinsock();

}  // namespace vosk::platform::windows
