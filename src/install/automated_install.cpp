// How MsiInstaller comes by a package, and what it leaves behind: nothing.
#include <fmt/format.h>

#include "files/tree_removal.h"
#include "identity.h"
#include "install/msi_installer.h"
#include "text/utf.h"

namespace vosk::install {

using text::PathToUtf8;

bool MsiInstaller::AutomatedInstall(const std::filesystem::path& temp_directory) {
  log_.LogWarn("VELDRAN Core launch failed or requested. Attempting automated install/update.");
  const auto work_directory = temp_directory / kWorkDirectoryName;
  if (!PrepareWorkDirectory(work_directory)) return false;
  const bool installed = InstallFromPackage(work_directory);
  progress_.Reset();

  log_.LogInfo("Installer: Cleaning up temporary files...");
  if (const auto removed = files::RemoveTree(host_.files, work_directory, work_directory)) {
    log_.LogInfo("Installer: Temporary directory cleaned up.");
  } else {
    log_.LogWarn("Installer: Failed to fully clean up temp directory '{}': {}", work_directory,
                 removed.error());
  }
  if (!installed) {
    log_.LogError("Installer: VELDRAN Core installation failed.");
    return false;
  }
  log_.LogInfo("Installer: VELDRAN Core installation process completed successfully.");
  return true;
}

bool MsiInstaller::PrepareWorkDirectory(const std::filesystem::path& work_directory) {
  if (const auto removed = files::RemoveTree(host_.files, work_directory, work_directory);
      !removed) {
    log_.LogWarn("Installer: Could not remove old temp install dir: {}", removed.error());
  }
  if (const auto created = host_.files.CreateDirectories(work_directory); !created) {
    log_.LogError("Installer: Failed to create temp install directory '{}': {}", work_directory,
                  created.error());
    return false;
  }
  log_.LogInfo("Installer: Using temp directory: {}", work_directory);
  return true;
}

bool MsiInstaller::InstallFromPackage(const std::filesystem::path& work_directory) {
  const auto zip_path = work_directory / kPackageZipName;
  const std::string url(identity::kCorePackageUrl);
  log_.LogInfo("Installer: Downloading from: {}", url);
  if (!downloader_.DownloadFile(url, zip_path)) {
    log_.LogError("Installer: Failed to download VELDRAN Core zip.");
    return false;
  }
  log_.LogInfo("Installer: Download complete: {}", zip_path);
  progress_.Begin("Extracting");
  if (!package_.ExtractMsi(zip_path, work_directory)) {
    log_.LogError("Installer: Failed to extract MSI from zip.");
    return false;
  }
  progress_.Begin("Installing");
  return UninstallThenInstall(work_directory / kMsiName);
}

}  // namespace vosk::install
