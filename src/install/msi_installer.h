// Installs the Core where there is none, or none that can be launched.
#pragma once

#include <filesystem>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "install/msi_package.h"
#include "install/msiexec.h"
#include "net/downloader.h"
#include "platform/host.h"
#include "process/process_control.h"

namespace vosk::install {

class MsiInstaller {
 public:
  MsiInstaller(const platform::Host& host, console::LogSink& log,
               console::TransferProgress& progress, process::ProcessControl& processes,
               net::Downloader& downloader);

  // Removes every installed version of the Core, then installs this MSI. True where the Core's
  // executable is in its place at the end. msiexec's logs go beside the MSI.
  [[nodiscard]] bool UninstallThenInstall(const std::filesystem::path& msi);

  // Downloads the Core's package and installs it, from a work directory in the temporary folder
  // that is gone at the end. Takes minutes; false where there is no new Core.
  [[nodiscard]] bool AutomatedInstall(const std::filesystem::path& temp_directory);

 private:
  [[nodiscard]] bool IsInstallable(const std::filesystem::path& msi);
  // True where nothing went wrong.
  [[nodiscard]] bool UninstallAll(const std::filesystem::path& log_directory);
  [[nodiscard]] bool Uninstall(const std::string& product_code,
                               const std::filesystem::path& log_directory);
  [[nodiscard]] bool JudgeUninstall(const std::string& product_code,
                                    const platform::ProcessHandle& process);
  // The exit code, or kStillActive where there is none; nothing where it could not be started.
  [[nodiscard]] std::optional<std::uint32_t> Install(const std::filesystem::path& msi,
                                                     const std::filesystem::path& install_log);
  [[nodiscard]] std::uint32_t AwaitInstall(const platform::ProcessHandle& process);
  [[nodiscard]] bool ConfirmInstall(std::uint32_t exit_code,
                                    const std::filesystem::path& install_log);

  [[nodiscard]] bool PrepareWorkDirectory(const std::filesystem::path& work_directory);
  [[nodiscard]] bool InstallFromPackage(const std::filesystem::path& work_directory);

  platform::Host host_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
  net::Downloader& downloader_;
  MsiPackage package_;
  Msiexec msiexec_;
};

}  // namespace vosk::install
