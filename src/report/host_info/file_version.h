#pragma once

#include <filesystem>
#include <string>

#include "console/log.h"
#include "platform/machine.h"

namespace vosk::report {

[[nodiscard]] std::string FormatFileVersion(const platform::FileVersion& version);

// Returns the version of a file, or "Unknown" if it has none. If it cannot be read, the error is
// returned in angle brackets and logged.
[[nodiscard]] std::string FileVersionText(const std::filesystem::path& path,
                                          platform::Machine& machine, console::LogSink& log);

}  // namespace vosk::report
