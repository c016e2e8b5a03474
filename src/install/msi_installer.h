// Installs the Core if there is none, or none that can be launched.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "install/core_package.h"
#include "install/msiexec.h"
#include "install/work_directory.h"
#include "platform/host.h"

namespace vosk::install {

class MsiInstaller {
 public:
  MsiInstaller(const platform::Host& host, console::LogSink& log,
               console::TransferProgress& progress, CorePackage& package, Msiexec& msiexec);

  // Downloads the Core's package and installs it, from a work directory in the temporary folder
  // that is removed at the end. Takes minutes. Returns false if there is no new Core.
  [[nodiscard]] bool AutomatedInstall(const std::filesystem::path& temp_directory);

  // Removes every installed version of the Core, then installs this MSI. Returns true if the Core's
  // executable is in its place at the end. msiexec's logs go beside the MSI.
  [[nodiscard]] bool UninstallThenInstall(const std::filesystem::path& msi);

 private:
  [[nodiscard]] bool Prepare(const WorkDirectory& work);
  [[nodiscard]] bool InstallFromPackage(const WorkDirectory& work);

  [[nodiscard]] bool IsInstallable(const std::filesystem::path& msi);
  // Returns true if nothing went wrong.
  [[nodiscard]] bool UninstallAll(const std::filesystem::path& log_directory);
  [[nodiscard]] bool Uninstall(const std::string& product_code,
                               const std::filesystem::path& log_directory);
  // The exit code; nothing if there is none.
  [[nodiscard]] std::optional<std::uint32_t> RunUninstall(const std::string& product_code,
                                                          const std::string& arguments);
  [[nodiscard]] std::optional<std::uint32_t> AwaitUninstall(const std::string& product_code,
                                                            const MsiexecRun& run);
  // The exit code, or kStillActive if there is none; nothing if msiexec could not be started.
  [[nodiscard]] std::optional<std::uint32_t> Install(const std::filesystem::path& msi,
                                                     const std::filesystem::path& install_log);
  [[nodiscard]] std::optional<std::uint32_t> RunInstall(const std::string& arguments);
  [[nodiscard]] std::uint32_t AwaitInstall(const MsiexecRun& run);
  [[nodiscard]] bool ConfirmInstall(std::uint32_t exit_code,
                                    const std::filesystem::path& install_log);

  platform::Host host_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
  CorePackage& package_;
  Msiexec& msiexec_;
};

}  // namespace vosk::install
