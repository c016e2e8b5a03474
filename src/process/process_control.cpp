#include "process/process_control.h"

#include "platform/types.h"
#include "process/process_end.h"
#include "process/rival_processes.h"

namespace vosk::process {

ProcessControl::ProcessControl(platform::Processes& processes, console::LogSink& log)
    : processes_(processes), log_(log) {}

platform::Result<> ProcessControl::TerminateProcessL(const platform::ProcessHandle& handle,
                                                     std::uint32_t exit_code) {
  return process::TerminateProcessL(handle, exit_code, processes_, log_);
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
  // The call's own result is judged first. The system also accepts the request of an unprivileged
  // user, so the log reports success then, too.
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

ProcessList ProcessControl::FindTargetProcessesByName(std::u16string_view name) {
  return process::FindTargetProcessesByName(name, processes_, log_);
}

ProcessList ProcessControl::FindCoreProcesses() {
  return process::FindCoreProcesses(processes_, log_);
}

bool ProcessControl::TerminateOtherInstances() {
  return process::TerminateOtherInstances(processes_, log_);
}

bool ProcessControl::TerminateProcDumpInstances() {
  return process::TerminateProcDumpInstances(processes_, log_);
}

}  // namespace vosk::process
