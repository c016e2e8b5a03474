#include "install/msiexec.h"

#include <fmt/format.h>

#include "identity.h"
#include "text/formatters.h"

namespace vosk::install {
namespace {

using Kind = MsiexecFailure::Kind;

constexpr std::string_view kInstallLogName = "VELDRAN_Core_Install_Log.txt";
constexpr std::uint32_t kOverdueExitCode = 1;
constexpr std::chrono::seconds kBusyPause{15};
constexpr std::chrono::minutes kBusyLimit{5};

}  // namespace

std::optional<std::uint32_t> RepeatWhileBusy(
    platform::Clock& clock, console::LogSink& log,
    const std::function<std::optional<std::uint32_t>()>& attempt) {
  auto exit_code = attempt();
  for (int left = kBusyLimit / kBusyPause; exit_code == kInstallerBusy && left > 0; --left) {
    log.LogWarn(
        "Installer: Another installation is running (Code: {}). Trying again in {} seconds.",
        kInstallerBusy, kBusyPause.count());
    clock.SleepFor(kBusyPause);
    exit_code = attempt();
  }
  return exit_code;
}

std::filesystem::path InstallLogIn(const std::filesystem::path& directory) {
  return directory / kInstallLogName;
}

std::filesystem::path UninstallLogIn(const std::filesystem::path& directory,
                                     std::string_view product_code) {
  return directory / fmt::format("VELDRAN_Core_Uninstall_{}_Log.txt", product_code);
}

std::string InstallArguments(const std::filesystem::path& msi,
                             const std::filesystem::path& log_path) {
  return fmt::format("/i \"{}\" /qn TARGETDIR=\"{}\" /L*v \"{}\"", msi, identity::kInstallDirectory,
                     log_path);
}

std::string UninstallArguments(std::string_view product_code,
                               const std::filesystem::path& log_path) {
  return fmt::format("/x {} /qn MSIRESTARTMANAGERCONTROL=Disable /L*v \"{}\"", product_code,
                     log_path);
}

std::string MsiexecRun::PidText() const {
  return pid == 0 ? "" : fmt::format(" (PID: {})", pid);
}

Msiexec::Msiexec(platform::Processes& system_processes, process::ProcessControl& processes)
    : system_processes_(system_processes), processes_(processes) {}

platform::Result<MsiexecRun> Msiexec::Start(const std::string& arguments) {
  auto process = system_processes_.StartElevated("msiexec.exe", arguments);
  if (!process) return tl::unexpected(process.error());
  const platform::ProcessId pid = system_processes_.Id(*process).value_or(0);
  return MsiexecRun{std::move(*process), pid};
}

MsiexecOutcome Msiexec::Await(const MsiexecRun& run, std::chrono::seconds limit) {
  const auto waited = system_processes_.WaitFor(run.process, limit);
  if (!waited) return tl::unexpected(MsiexecFailure{Kind::wait_failed, waited.error()});
  if (*waited == platform::WaitOutcome::timed_out) {
    return tl::unexpected(MsiexecFailure{Kind::overdue, {}});
  }
  return ExitCode(run);
}

MsiexecOutcome Msiexec::ExitCode(const MsiexecRun& run) {
  const auto code = system_processes_.ExitCode(run.process);
  if (!code) return tl::unexpected(MsiexecFailure{Kind::exit_code_unreadable, code.error()});
  return *code;
}

void Msiexec::End(const MsiexecRun& run) {
  processes_.TerminateProcessL(run.process, kOverdueExitCode);
}

}  // namespace vosk::install
