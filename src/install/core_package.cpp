#include "install/core_package.h"

#include "identity.h"
#include "install/work_directory.h"
#include "text/utf.h"
#include "zip/zip_reader.h"

namespace vosk::install {

std::filesystem::path InstalledCore() {
  return text::PathFromUtf8(identity::kDefaultTargetPath);
}

CorePackage::CorePackage(platform::Files& files, platform::Installer& installer,
                         console::LogSink& log, net::Downloader& downloader)
    : files_(files), installer_(installer), log_(log), downloader_(downloader) {}

bool CorePackage::Download(const std::filesystem::path& zip_path) {
  return downloader_.DownloadFile(std::string(identity::kCorePackageUrl), zip_path);
}

bool CorePackage::ExtractMsi(const std::filesystem::path& zip_path,
                             const std::filesystem::path& destination_directory) {
  log_.LogInfo("Installer: Attempting to extract MSI from: {}", zip_path);
  zip::ZipReader zip(files_);
  if (const auto opened = zip.Open(zip_path); !opened) {
    log_.LogError("Installer: Failed init zip reader for {}. Error: {}", zip_path, opened.error());
    return false;
  }
  const auto index = zip.Locate(std::string(kMsiName));
  if (!index) {
    log_.LogError("Installer: Could not find '{}' in {}", kMsiName, zip_path);
    return false;
  }
  log_.LogInfo("Installer: Found [{}] at index {}", kMsiName, *index);
  const auto target = destination_directory / kMsiName;
  if (!MakeRoomFor(target)) return false;
  if (const auto extracted = zip.ExtractToFile(*index, target); !extracted) {
    log_.LogError("Installer: Failed extract {} to {}. Error: {}", kMsiName, target,
                  extracted.error());
    return false;
  }
  log_.LogInfo("Installer: Successfully extracted {} to {}", kMsiName, target);
  return true;
}

bool CorePackage::MakeRoomFor(const std::filesystem::path& target) {
  const auto directory = target.parent_path();
  if (const auto created = files_.CreateDirectories(directory); !created) {
    log_.LogError("Installer: Failed to create extraction directory '{}': {}", directory,
                  created.error());
    return false;
  }
  // If the old one cannot be removed, the extraction fails and logs why.
  static_cast<void>(files_.Remove(target));
  return true;
}

std::string CorePackage::GetMsiProductVersion(const std::filesystem::path& msi) {
  const auto database = installer_.OpenDatabase(msi);
  if (!database) {
    log_.LogError("GetMsiProductVersion: Failed to open MSI database '{}'. Error: {}", msi,
                  database.error());
    return {};
  }
  const auto view = installer_.OpenView(
      *database, "SELECT `Value` FROM `Property` WHERE `Property` = 'ProductVersion'");
  if (!view) {
    log_.LogError("GetMsiProductVersion: Failed to open view. Error: {}", view.error());
    return {};
  }
  if (const auto executed = installer_.Execute(*view); !executed) {
    log_.LogError("GetMsiProductVersion: Failed to execute view. Error: {}", executed.error());
    return {};
  }
  const auto record = installer_.Fetch(*view);
  if (!record) {
    log_.LogError("GetMsiProductVersion: No ProductVersion property found. Error: {}",
                  record.error());
    return {};
  }
  const auto version = installer_.FieldText(*record, 1);
  if (!version) {
    log_.LogError("GetMsiProductVersion: Failed to read ProductVersion. Error: {}",
                  version.error());
    return {};
  }
  log_.LogInfo("GetMsiProductVersion: MSI ProductVersion = {}", *version);
  return *version;
}

}  // namespace vosk::install
