// The files of an installation under way. All of them lie in one work directory, which goes when
// the installation is over.
#pragma once

#include <filesystem>
#include <string_view>

namespace vosk::install {

inline constexpr std::string_view kWorkDirectoryName = "VELDRAN_Install";
inline constexpr std::string_view kPackageZipName = "VELDRANCore_latest.zip";
inline constexpr std::string_view kMsiName = "VELDRAN Core Installer.msi";
inline constexpr std::string_view kInstallLogName = "VELDRAN_Core_Install_Log.txt";

// msiexec's log of the removal of one product.
[[nodiscard]] std::filesystem::path UninstallLogIn(const std::filesystem::path& directory,
                                                   std::string_view product_code);

}  // namespace vosk::install
