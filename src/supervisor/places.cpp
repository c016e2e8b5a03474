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

std::optional<std::filesystem::path> FindLogRoot(platform::System& system, platform::Files& files) {
  const auto roaming = system.RoamingAppDataPath();
  if (!roaming) return std::nullopt;
  auto log_root = LogRootBelow(*roaming);
  const auto type = files.TypeOf(log_root);
  if (!type || *type != platform::FileType::directory) return std::nullopt;
  return log_root;
}

}  // namespace vosk::supervisor
