// Empties a directory.
#pragma once

#include <filesystem>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace vosk::files {

// Deletes everything inside the directory, trying again if something is in use. Returns true if
// nothing is left. Refuses a relative path and a link to a directory.
bool ClearDirectory(platform::Files& files, platform::Clock& clock, console::LogSink& log,
                    const std::filesystem::path& directory);

}  // namespace vosk::files
