#include "install/msiexec.h"

#include <fmt/format.h>

#include "identity.h"
#include "text/utf.h"

namespace vosk::install {
namespace {

constexpr std::uint32_t kOverdueExitCode = 1;

std::string Quoted(const std::filesystem::path& path) {
  return fmt::format("\"{}\"", text::PathToUtf8(path));
}

}  // namespace

std::filesystem::path UninstallLogIn(const std::filesystem::path& directory,
                                     std::string_view product_code) {
  return directory / fmt::format("VELDRAN_Core_Uninstall_{}_Log.txt", product_code);
}

std::string UninstallArguments(std::string_view product_code,
                               const std::filesystem::path& log_path) {
  return fmt::format("/x {} /qn MSIRESTARTMANAGERCONTROL=Disable /L*v {}", product_code,
                     Quoted(log_path));
}

std::string InstallArguments(const std::filesystem::path& msi,
                             const std::filesystem::path& log_path) {
  return fmt::format("/i {} /qn TARGETDIR=\"{}\" /L*v {}", Quoted(msi), identity::kInstallDirectory,
                     Quoted(log_path));
}

std::filesystem::path InstalledCore() {
  return text::PathFromUtf8(identity::kDefaultTargetPath);
}

Msiexec::Msiexec(platform::Files& files, platform::Processes& system_processes,
                 console::LogSink& log, process::ProcessControl& processes)
    : files_(files), system_processes_(system_processes), log_(log), processes_(processes) {}

bool Msiexec::RunStep(std::string_view step, const std::string& arguments,
                      const std::filesystem::path& log_path, std::chrono::seconds limit,
                      std::uint32_t& exit_code) {
  log_.LogInfo("Installer: Step {} - Enabling log: {}", step, log_path);
  // msiexec tells of a log that it cannot write; nothing else depends on it.
  static_cast<void>(files_.CreateDirectories(log_path.parent_path()));
  static_cast<void>(files_.Remove(log_path));
  log_.LogInfo("Installer: Step {} - Executing Command: msiexec.exe {}", step, arguments);
  const auto process = Start(arguments);
  if (!process) {
    log_.LogError("Installer: ShellExecuteExW failed for {} command. Error: {}", step,
                  process.error());
    if (process.error() == platform::kCancelled) {
      log_.LogWarn("Installer: {} step might have been cancelled (UAC Denied?).", step);
    }
    return false;
  }
  log_.LogInfo("Installer: Waiting for {} process{} to complete...", step, PidText(*process));
  Await(step, *process, limit, exit_code);
  return true;
}

void Msiexec::Await(std::string_view step, const platform::ProcessHandle& process,
                    std::chrono::seconds limit, std::uint32_t& exit_code) {
  const auto outcome = system_processes_.WaitFor(process, limit);
  if (!outcome) {
    log_.LogError("Installer: WaitForSingleObject failed for {} process. Error: {}", step,
                  outcome.error());
    exit_code = outcome.error().code.value;
    return;
  }
  if (*outcome == platform::WaitOutcome::timed_out) {
    log_.LogError("Installer: {} process timed out after {} seconds. Terminating...", step,
                  limit.count());
    EndOverdue(process);
    exit_code = kWaitTimeout;
    return;
  }
  const auto code = system_processes_.ExitCode(process);
  if (!code) {
    log_.LogError("Installer: Failed to get {} exit code after wait. Error: {}", step,
                  code.error());
    return;
  }
  exit_code = *code;
  log_.LogInfo("Installer: {} process finished with exit code: {}", step, exit_code);
}

platform::Result<platform::ProcessHandle> Msiexec::Start(const std::string& arguments) {
  return system_processes_.StartElevated("msiexec.exe", arguments);
}

std::string Msiexec::PidText(const platform::ProcessHandle& process) {
  const platform::ProcessId pid = system_processes_.Id(process).value_or(0);
  return pid == 0 ? "" : fmt::format(" (PID: {})", pid);
}

void Msiexec::EndOverdue(const platform::ProcessHandle& process) {
  processes_.TerminateProcessL(process, kOverdueExitCode);
}

}  // namespace vosk::install
