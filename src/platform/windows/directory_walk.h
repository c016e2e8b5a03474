#pragma once

#include "platform/files.h"

namespace vosk::platform::windows {

[[nodiscard]] Result<std::unique_ptr<DirectoryWalk>> OpenWalk(
    const std::filesystem::path& directory, WalkDepth depth);

}  // namespace vosk::platform::windows
