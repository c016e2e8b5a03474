// Replaces the Core, and VOSK with it, by a newer release.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>

#include "console/log.h"
#include "install/core_version.h"
#include "install/msi_package.h"
#include "install/msiexec.h"
#include "install/self_rename.h"
#include "net/downloader.h"
#include "platform/host.h"
#include "process/process_control.h"

namespace vosk::install {

// What an update is to bring, and what runs at its start.
struct UpdateRequest {
  std::string expected_version;
  std::filesystem::path dump_storage_directory;
  std::filesystem::path core_directory;
  std::filesystem::path log_root_directory;  // empty: not known
  // Ends the monitor and the Core; returns false if the Core outlived it.
  std::function<bool()> end_core;
};

class SelfUpdate {
 public:
  // Sets `g_terminateMonitoring` when a new VOSK has taken over, and when the running one could not
  // be put back in its place.
  SelfUpdate(const platform::Host& host, console::LogSink& log, process::ProcessControl& processes,
             net::Downloader& downloader, CoreVersion& core_version,
             std::atomic<bool>& g_terminateMonitoring);

  // Downloads the package, makes sure of its version, ends what runs, installs and hands over;
  // takes minutes. False where it failed: the running VOSK is then to go on, and the Core may be
  // down.
  [[nodiscard]] bool Run(const UpdateRequest& request);

 private:
  struct Work {
    std::filesystem::path directory;
    std::filesystem::path zip;
    std::filesystem::path msi;
  };

  [[nodiscard]] bool RunSteps(const UpdateRequest& request, const Work& work);
  [[nodiscard]] bool PrepareWorkDirectory(const Work& work);
  [[nodiscard]] bool FetchPackage(const Work& work);
  [[nodiscard]] bool ValidateVersion(const std::string& expected, const Work& work);
  void DiscardPackage(const Work& work);
  [[nodiscard]] bool TerminateProcesses(const UpdateRequest& request);
  void ClearCoreVersionFile(const std::filesystem::path& log_root_directory);

  // From here on VOSK's executable is out of its place.
  [[nodiscard]] bool Replace(const UpdateRequest& request, const Work& work);
  void UninstallOldVersions(const Work& work);
  [[nodiscard]] bool UninstallOldVersion(const std::string& product_code, const Work& work);
  [[nodiscard]] bool InstallNewVersion(const Work& work);
  [[nodiscard]] bool JudgeInstall(std::uint32_t exit_code);
  [[nodiscard]] bool HandOver(const std::filesystem::path& core_directory);
  [[nodiscard]] bool NewInstanceAppears();
  [[nodiscard]] bool LaunchNewInstance(const std::filesystem::path& executable);

  platform::Host host_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
  net::Downloader& downloader_;
  CoreVersion& core_version_;
  std::atomic<bool>& g_terminateMonitoring_;
  MsiPackage package_;
  Msiexec msiexec_;
  SelfRename self_rename_;
};

}  // namespace vosk::install
