#include "supervisor/startup_places.h"

#include <fmt/format.h>

#include "identity.h"
#include "platform/files.h"
#include "platform/system.h"
#include "text/utf.h"

namespace vosk::supervisor {

std::filesystem::path LogRootBelow(const std::filesystem::path& roaming_app_data) {
  return roaming_app_data / "VELDRAN" / "stats" / "TestNet";
}

StartupPlaces::StartupPlaces(const platform::Host& host, console::LogSink& log)
    : host_(host), log_(log) {}

tl::expected<void, std::string> StartupPlaces::FixDirectories(Places& places) {
  const auto module = host_.system.ModulePath();
  if (!module) {
    return tl::unexpected(fmt::format("Failed to get module file name. Error: {}", module.error()));
  }
  places.supervisor_directory = module->parent_path();
  log_.LogInfo("VOSK directory: {}", places.supervisor_directory);
  return PrepareDumpStorage(places);
}

tl::expected<void, std::string> StartupPlaces::PrepareDumpStorage(Places& places) {
  const auto temp = host_.system.TempPath();
  if (!temp || temp->native().size() >= platform::kMaxPath) {
    return tl::unexpected(fmt::format("Failed to get temporary path. Error: {}",
                                      temp ? platform::kSuccess : temp.error()));
  }
  places.dump_storage_directory = *temp / identity::kDumpStorageName;
  const std::string path = text::PathToUtf8(places.dump_storage_directory);
  // A file of that name would take no dump: it is no directory, and none can be made there.
  const auto type = host_.files.TypeOf(places.dump_storage_directory);
  if (type && *type == platform::FileType::directory) {
    log_.LogInfo("Using existing dump storage directory: {}", path);
    return {};
  }
  const auto created = host_.files.CreateDirectories(places.dump_storage_directory);
  if (!created) {
    return tl::unexpected(fmt::format("Failed to create dump storage directory: {}, Error: {}",
                                      path, created.error().text));
  }
  log_.LogInfo("Created dump storage directory: {}", path);
  return {};
}

bool StartupPlaces::IsTargetAt(const std::filesystem::path& path, std::string_view not_found) {
  const auto exists = host_.files.Exists(path);
  if (exists && *exists) return true;
  log_.LogWarn("{}{}{}", not_found, path,
               exists ? "" : fmt::format(" (Error: {})", exists.error()));
  return false;
}

bool StartupPlaces::LocateTarget(Places& places) {
  const auto default_path = text::PathFromUtf8(identity::kDefaultTargetPath);
  log_.LogInfo("Checking for target at default path: {}", default_path);
  if (IsTargetAt(default_path, "Target executable not found at default path: ")) {
    log_.LogInfo("Using target executable from default location.");
    places.UseTarget(default_path);
  } else {
    const auto fallback = places.supervisor_directory / identity::kCoreExecutable;
    log_.LogInfo("Checking fallback path: {}", fallback);
    if (!IsTargetAt(fallback, "Target executable not found at fallback path: ")) return false;
    log_.LogInfo("Using target executable from fallback location.");
    places.UseTarget(fallback);
  }
  return true;
}

void StartupPlaces::LocateLogRoot(Places& places) {
  const auto roaming = host_.system.RoamingAppDataPath();
  if (!roaming) {
    log_.LogError(
        "SHGetKnownFolderPath failed for RoamingAppData. HRESULT: 0x{:x}. "
        "Cannot determine log directory.",
        roaming.error());
    log_.LogWarn("Could not determine log root directory path. Logs will not be included.");
    return;
  }
  try {
    const auto log_root = LogRootBelow(*roaming);
    const std::string path = text::PathToUtf8(log_root);
    const auto type = host_.files.TypeOf(log_root);
    if (type && *type == platform::FileType::directory) {
      log_.LogInfo("Target log root directory found: {}", path);
      places.log_root_directory = log_root;
      return;
    }
    log_.LogWarn(
        "Target log root directory does not exist or is not accessible: {}{}. Logs may not be "
        "included in crash reports.",
        path, type ? "" : fmt::format(" Error: {}", type.error()));
  } catch (const std::exception& problem) {
    log_.LogError("Exception constructing log root path from AppData: {}", problem.what());
    log_.LogWarn("Could not determine log root directory path. Logs will not be included.");
  }
}

}  // namespace vosk::supervisor
