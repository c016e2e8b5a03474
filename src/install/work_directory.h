// The work directory of an installation. It holds the Core's package, the MSI in it and msiexec's
// logs, and is removed when the installation is over.
#pragma once

#include <filesystem>
#include <string_view>

#include "platform/files.h"

namespace vosk::install {

inline constexpr std::string_view kWorkDirectoryName = "VELDRAN_Install";
inline constexpr std::string_view kPackageZipName = "VELDRANCore_latest.zip";
// The MSI's name in the zip and in the work directory.
inline constexpr std::string_view kMsiName = "VELDRAN Core Installer.msi";

class WorkDirectory {
 public:
  // Does not touch the disk yet.
  WorkDirectory(platform::Files& files, const std::filesystem::path& temp_directory);

  [[nodiscard]] const std::filesystem::path& Path() const { return path_; }
  [[nodiscard]] std::filesystem::path Zip() const { return path_ / kPackageZipName; }
  [[nodiscard]] std::filesystem::path Msi() const { return path_ / kMsiName; }

  // Removes it with everything inside; a missing one is a success.
  platform::Result<> Remove() const;
  platform::Result<> Create() const;

 private:
  platform::Files& files_;
  std::filesystem::path path_;
};

}  // namespace vosk::install
