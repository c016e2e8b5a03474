#include "report/host_info/file_version.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vosk::report {

std::string FormatFileVersion(const platform::FileVersion& version) {
  return fmt::format("{}", fmt::join(version, "."));
}

std::string FileVersionText(const std::filesystem::path& path, platform::Machine& machine,
                            console::LogSink& log) {
  const auto version = machine.VersionOf(path);
  if (version) return FormatFileVersion(*version);
  const bool bears_none =
      version.error() == platform::kNoResources || version.error() == platform::kNoVersionResource;
  if (bears_none) return "Unknown";
  log.LogError("Failed to read the version of '{}': {}", path, version.error());
  return fmt::format("<Error reading version: {}>", version.error());
}

}  // namespace vosk::report
