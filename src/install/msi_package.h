// The Core's installer package: a zip that holds an MSI.
#pragma once

#include <filesystem>
#include <string>

#include "console/log.h"
#include "platform/files.h"
#include "platform/installer.h"
#include "zip/zip_reader.h"

namespace vosk::install {

class MsiPackage {
 public:
  MsiPackage(platform::Files& files, platform::Installer& installer, console::LogSink& log);

  // Takes the MSI out of the zip: on success it lies under its own name in the directory, which is
  // made when missing. An MSI that lay there before is gone in any case.
  [[nodiscard]] bool ExtractMsi(const std::filesystem::path& zip_path,
                                const std::filesystem::path& destination_directory);

  // The version that the MSI would install; empty where it cannot be read.
  [[nodiscard]] std::string GetMsiProductVersion(const std::filesystem::path& msi);

 private:
  [[nodiscard]] bool MakeRoomFor(const std::filesystem::path& target);

  platform::Files& files_;
  platform::Installer& installer_;
  console::LogSink& log_;
};

}  // namespace vosk::install
