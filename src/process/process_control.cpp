#include "process/process_control.h"

#include <fmt/format.h>

#include "identity.h"
#include "platform/types.h"

namespace vosk::process {
namespace {

using platform::ProcessHandle;

}  // namespace

ProcessControl::ProcessControl(platform::Processes& processes, console::LogSink& log)
    : processes_(processes), log_(log) {}

platform::Result<> ProcessControl::TerminateProcessL(const ProcessHandle& handle,
                                                     std::uint32_t exit_code) {
  if (!handle) {
    log_.LogError("TerminateProcessL: Received invalid process handle.");
    return tl::unexpected(platform::kInvalidHandle);
  }
  const auto pid = processes_.Id(handle);
  if (!pid) {
    log_.LogError("TerminateProcessL: Failed to get PID from handle. Error: {}", pid.error());
  }
  log_.LogInfo("TerminateProcessL: Attempting termination via API for handle {}",
               pid ? fmt::format("(PID: {})", *pid) : "(PID unknown)");
  const auto terminated = processes_.Terminate(handle, exit_code);
  if (terminated) {
    log_.LogInfo("TerminateProcessL: TerminateProcess API succeeded for PID: {}",
                 pid ? fmt::to_string(*pid) : "Handle");
    return {};
  }
  log_.LogError("TerminateProcessL: TerminateProcess API failed. Error: {}", terminated.error());
  if (terminated.error() != platform::kAccessDenied) {
    log_.LogError(
        "TerminateProcessL: Not attempting taskkill fallback as error was not Access Denied.");
    return terminated;
  }
  log_.LogWarn(
      "TerminateProcessL: Access denied with API. Attempting fallback using 'taskkill /F'...");
  if (!pid) {
    log_.LogError("TerminateProcessL: Cannot use taskkill fallback because PID is unknown.");
    return tl::unexpected(platform::kAccessDenied);
  }
  return TerminateByTaskkill(*pid);
}

platform::Result<> ProcessControl::TerminateByTaskkill(platform::ProcessId pid) {
  const std::string command = fmt::format("taskkill /F /PID {}", pid);
  log_.LogInfo("TerminateProcessL: Executing fallback: {}", command);
  const int result = processes_.RunShellCommand(command);
  if (result == 0) {
    log_.LogInfo(
        "TerminateProcessL: Fallback 'taskkill /F' command executed "
        "successfully for PID: {}",
        pid);
    return {};
  }
  log_.LogError(
      "TerminateProcessL: Fallback 'taskkill /F' command failed or returned "
      "error. Result code: {}",
      result);
  return tl::unexpected(platform::kAccessDenied);
}

bool ProcessControl::EnableDebugPriv() {
  const auto token =
      processes_.OpenOwnToken(platform::kTokenAdjustPrivileges | platform::kTokenQuery);
  if (!token) {
    log_.LogError("EnableDebugPriv: OpenProcessToken failed: {}", token.error());
    return false;
  }
  const auto privilege = processes_.LookUpPrivilege("SeDebugPrivilege");
  if (!privilege) {
    log_.LogError("EnableDebugPriv: LookupPrivilegeValue failed: {}", privilege.error());
    return false;
  }
  // The call's own result is judged first. The system accepts the request of an unprivileged user
  // as well, so such a user reads of a success here.
  const auto adjusted = processes_.EnablePrivilege(*token, *privilege);
  if (adjusted.accepted || adjusted.last_error == platform::kSuccess) {
    log_.LogInfo("EnableDebugPriv: SeDebugPrivilege adjustment succeeded.");
    return true;
  }
  if (adjusted.last_error == platform::kNotAllAssigned) {
    log_.LogWarn(
        "EnableDebugPriv: SeDebugPrivilege is not assigned to this user/process. Monitoring may be "
        "limited.");
    return true;
  }
  log_.LogError("EnableDebugPriv: AdjustTokenPrivileges failed: {}", adjusted.last_error);
  return false;
}

bool ProcessControl::IsProcessAlive(platform::ProcessId pid) {
  const auto process = processes_.Open(platform::access::kQueryLimitedInformation, pid);
  if (!process) {
    if (process.error() == platform::kAccessDenied) {
      log_.LogWarn("Access denied when trying to query PID {}. Cannot confirm status.", pid);
    }
    return false;
  }
  const auto exit_code = processes_.ExitCode(*process);
  if (!exit_code) {
    log_.LogError("GetExitCodeProcess failed for PID {}: {}", pid, exit_code.error());
    return false;
  }
  return *exit_code == platform::kStillActive;
}

}  // namespace vosk::process
