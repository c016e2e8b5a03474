// Replaces the Core, and VOSK with it, by a newer release.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "console/log.h"
#include "install/core_package.h"
#include "install/core_version.h"
#include "install/msiexec.h"
#include "install/self_rename.h"
#include "install/successor.h"
#include "install/work_directory.h"
#include "platform/host.h"
#include "process/process_control.h"

namespace vosk::install {

// What an update installs, and where.
struct UpdateRequest {
  std::string expected_version;
  std::filesystem::path dump_storage_directory;
  std::filesystem::path core_directory;
  std::filesystem::path log_root_directory;  // empty: not known
  // Ends the monitor and the Core; returns false if the Core is still there. Called at most once,
  // after the package has proved good.
  std::function<bool()> end_core;
};

class SelfUpdate {
 public:
  // Sets `g_terminateMonitoring` if a new VOSK has taken over, or if the running one could not be
  // put back in its place.
  SelfUpdate(const platform::Host& host, console::LogSink& log, process::ProcessControl& processes,
             CorePackage& package, Msiexec& msiexec, CoreVersion& core_version,
             std::atomic<bool>& g_terminateMonitoring);

  // Downloads the package, checks its version, ends what runs, installs and hands over; takes
  // minutes. Returns false if it failed: the running VOSK should then go on, and the Core may be
  // down.
  [[nodiscard]] bool Run(const UpdateRequest& request);

 private:
  [[nodiscard]] bool RunSteps(const UpdateRequest& request, const WorkDirectory& work);
  [[nodiscard]] bool PrepareWorkDirectory(const WorkDirectory& work);
  [[nodiscard]] bool FetchPackage(const WorkDirectory& work);
  [[nodiscard]] bool ValidateVersion(const std::string& expected, const WorkDirectory& work);
  void DiscardPackage(const WorkDirectory& work);
  [[nodiscard]] bool TerminateProcesses(const UpdateRequest& request);
  void ClearCoreVersionFile(const std::filesystem::path& log_root_directory);

  // VOSK's executable is out of its place from here until the hand-over, or is put back.
  [[nodiscard]] bool ReplaceSelf(const UpdateRequest& request, const WorkDirectory& work,
                                 const SelfNames& names);
  [[nodiscard]] bool Replace(const UpdateRequest& request, const WorkDirectory& work);
  void UninstallOldVersions(const WorkDirectory& work);
  [[nodiscard]] bool UninstallOldVersion(const std::string& product_code,
                                         const WorkDirectory& work);
  [[nodiscard]] bool InstallNewVersion(const WorkDirectory& work);
  [[nodiscard]] bool JudgeInstall(std::uint32_t exit_code);

  // The exit code, or the number that stands for it if there is none; nothing if msiexec could not
  // be started. Waits until no other installation is in its way.
  [[nodiscard]] std::optional<std::uint32_t> RunMsiexec(std::string_view step,
                                                        const std::string& arguments,
                                                        const std::filesystem::path& log_path,
                                                        std::chrono::seconds limit);
  [[nodiscard]] std::optional<std::uint32_t> RunMsiexecOnce(std::string_view step,
                                                            const std::string& arguments,
                                                            std::chrono::seconds limit);
  [[nodiscard]] std::uint32_t AwaitMsiexec(std::string_view step, const MsiexecRun& run,
                                           std::chrono::seconds limit);

  platform::Host host_;
  console::LogSink& log_;
  CorePackage& package_;
  Msiexec& msiexec_;
  CoreVersion& core_version_;
  std::atomic<bool>& g_terminateMonitoring_;
  SelfRename self_rename_;
  Successor successor_;
};

}  // namespace vosk::install
