#include "supervisor/places.h"

#include <fmt/format.h>

#include "identity.h"
#include "install/core_package.h"

namespace vosk::supervisor {
namespace {

bool IsCoreAt(const std::filesystem::path& path, platform::Files& files, console::LogSink& log,
              const SearchTexts& texts) {
  log.LogInfo("{}{}", texts.checking, path);
  const auto exists = files.Exists(path);
  if (exists && *exists) {
    log.LogInfo(texts.found);
    return true;
  }
  if (texts.missing.empty()) return false;
  log.LogWarn("{}{}{}", texts.missing, path,
              exists ? "" : fmt::format(" (Error: {})", exists.error()));
  return false;
}

}  // namespace

bool FindCore(platform::Files& files, console::LogSink& log, const CoreSearchTexts& texts,
              Places& places) {
  auto core = install::InstalledCore();
  if (!IsCoreAt(core, files, log, texts.at_default)) {
    core = places.supervisor_directory / identity::kCoreExecutable;
    if (!IsCoreAt(core, files, log, texts.at_fallback)) return false;
  }
  places.target_path = core;
  places.target_directory = core.parent_path();
  return true;
}

std::filesystem::path LogRootBelow(const std::filesystem::path& roaming_app_data) {
  return roaming_app_data / "VELDRAN" / "stats" / "TestNet";
}

}  // namespace vosk::supervisor
