// The Core's package: a zip that holds an MSI.
#pragma once

#include <filesystem>
#include <string>

#include "console/log.h"
#include "net/downloader.h"
#include "platform/files.h"
#include "platform/installer.h"

namespace vosk::install {

// Returns where an installation puts the Core.
[[nodiscard]] std::filesystem::path InstalledCore();

class CorePackage {
 public:
  CorePackage(platform::Files& files, platform::Installer& installer, console::LogSink& log,
              net::Downloader& downloader);

  // Fetches the latest package. If that fails, the reason is logged and there is no file.
  [[nodiscard]] bool Download(const std::filesystem::path& zip_path);

  // Extracts the MSI from the zip under its own name into the directory, which is created if
  // missing. An older MSI there is removed in any case.
  [[nodiscard]] bool ExtractMsi(const std::filesystem::path& zip_path,
                                const std::filesystem::path& destination_directory);

  // Returns the version that the MSI would install; empty if it cannot be read.
  [[nodiscard]] std::string GetMsiProductVersion(const std::filesystem::path& msi);

 private:
  [[nodiscard]] bool MakeRoomFor(const std::filesystem::path& target);

  platform::Files& files_;
  platform::Installer& installer_;
  console::LogSink& log_;
  net::Downloader& downloader_;
};

}  // namespace vosk::install
