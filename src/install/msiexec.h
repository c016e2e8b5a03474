// Runs msiexec.exe with administrator rights.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tl/expected.hpp>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/processes.h"
#include "process/process_control.h"

namespace vosk::install {

// Exit codes of msiexec.exe.
inline constexpr std::uint32_t kInstallSuccess = 0;
inline constexpr std::uint32_t kUnknownProduct = 1605;
inline constexpr std::uint32_t kInstallerBusy = 1618;  // another installation is running
inline constexpr std::uint32_t kRebootRequired = 3010;

inline constexpr std::chrono::seconds kUninstallLimit{120};
inline constexpr std::chrono::seconds kInstallLimit{300};
// The installer's last writes and its own children get this long after its end.
inline constexpr std::chrono::milliseconds kPauseAfterInstall{2500};

// Runs `attempt` again every 15 seconds, with a line each time, while it ends with kInstallerBusy;
// five minutes at most. Returns what the last attempt did: its exit code, or nothing if it has
// none.
[[nodiscard]] std::optional<std::uint32_t> RepeatWhileBusy(
    platform::Clock& clock, console::LogSink& log,
    const std::function<std::optional<std::uint32_t>()>& attempt);

// msiexec's log of an installation, and of the removal of one product.
[[nodiscard]] std::filesystem::path InstallLogIn(const std::filesystem::path& directory);
[[nodiscard]] std::filesystem::path UninstallLogIn(const std::filesystem::path& directory,
                                                   std::string_view product_code);

[[nodiscard]] std::string InstallArguments(const std::filesystem::path& msi,
                                           const std::filesystem::path& log_path);
[[nodiscard]] std::string UninstallArguments(std::string_view product_code,
                                             const std::filesystem::path& log_path);

// An msiexec.exe that was started.
struct MsiexecRun {
  platform::ProcessHandle process;
  platform::ProcessId pid = 0;  // 0: unknown

  // Returns " (PID: 4711)", or nothing if the number is unknown.
  [[nodiscard]] std::string PidText() const;
};

// Why a run has no exit code.
struct MsiexecFailure {
  enum class Kind { wait_failed, overdue, exit_code_unreadable };
  Kind kind;
  platform::Error error;  // none if it is overdue
};
using MsiexecOutcome = tl::expected<std::uint32_t, MsiexecFailure>;

class Msiexec {
 public:
  Msiexec(platform::Processes& system_processes, process::ProcessControl& processes);

  // Starts it without waiting. The error is kCancelled if the user refuses.
  [[nodiscard]] platform::Result<MsiexecRun> Start(const std::string& arguments);

  // Waits for its end and returns the exit code. An overdue run goes on.
  [[nodiscard]] MsiexecOutcome Await(const MsiexecRun& run, std::chrono::seconds limit);

  // Returns the present exit code: kStillActive until the end.
  [[nodiscard]] MsiexecOutcome ExitCode(const MsiexecRun& run);

  // Ends an overdue run.
  void End(const MsiexecRun& run);

 private:
  platform::Processes& system_processes_;
  process::ProcessControl& processes_;
};

}  // namespace vosk::install
