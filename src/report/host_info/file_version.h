#pragma once

#include <filesystem>
#include <string>

#include "console/log.h"
#include "platform/machine.h"

namespace vosk::report {

[[nodiscard]] std::string FormatFileVersion(const platform::FileVersion& version);

// Returns the version of a file, "Unknown" if it has none, or an error in angle brackets, which is
// also logged, if it cannot be read.
[[nodiscard]] std::string FileVersionText(const std::filesystem::path& path,
                                          platform::Machine& machine, console::LogSink& log);

}  // namespace vosk::report
