// Runs msiexec.exe with administrator rights.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "console/log.h"
#include "install/work_files.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "process/process_control.h"

namespace vosk::install {

// Exit codes of msiexec.exe.
inline constexpr std::uint32_t kInstallSuccess = 0;
inline constexpr std::uint32_t kUnknownProduct = 1605;
inline constexpr std::uint32_t kRebootRequired = 3010;
// What a step that was ended for taking too long counts as.
inline constexpr std::uint32_t kWaitTimeout = 258;

inline constexpr std::chrono::seconds kUninstallLimit{120};
inline constexpr std::chrono::seconds kInstallLimit{300};
// The installer's last writes and its own children get this long after its end.
inline constexpr std::chrono::milliseconds kPauseAfterInstall{2500};

[[nodiscard]] std::string UninstallArguments(std::string_view product_code,
                                             const std::filesystem::path& log_path);
[[nodiscard]] std::string InstallArguments(const std::filesystem::path& msi,
                                           const std::filesystem::path& log_path);
// Where an installation puts the Core.
[[nodiscard]] std::filesystem::path InstalledCore();

class Msiexec {
 public:
  Msiexec(platform::Files& files, platform::Processes& system_processes, console::LogSink& log,
          process::ProcessControl& processes);

  // Runs one step and waits for its end, which comes at the limit at the latest. False only where
  // it could not be started. The exit code is the caller's to judge: kWaitTimeout where the step
  // had to be ended, the error's number where the wait failed.
  [[nodiscard]] bool RunStep(std::string_view step, const std::string& arguments,
                             const std::filesystem::path& log_path, std::chrono::seconds limit,
                             std::uint32_t& exit_code);

  // Starts it without waiting. The error is kCancelled where the user refuses.
  [[nodiscard]] platform::Result<platform::ProcessHandle> Start(const std::string& arguments);
  // " (PID: 4711)", or nothing where the number cannot be had.
  [[nodiscard]] std::string PidText(const platform::ProcessHandle& process);
  // Ends a step that takes too long.
  void EndOverdue(const platform::ProcessHandle& process);

 private:
  void Await(std::string_view step, const platform::ProcessHandle& process,
             std::chrono::seconds limit, std::uint32_t& exit_code);

  platform::Files& files_;
  platform::Processes& system_processes_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
};

}  // namespace vosk::install
