// Graphics adapters through DXGI and Direct3D 11.
#pragma once

#include <memory>

#include "platform/machine.h"

namespace vosk::platform::windows {

[[nodiscard]] Result<std::unique_ptr<GraphicsAdapters>> OpenDxgi();

}  // namespace vosk::platform::windows
