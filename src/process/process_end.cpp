#include "process/process_end.h"

#include <fmt/format.h>

namespace vosk::process {
namespace {

platform::Result<> TerminateByTaskkill(platform::ProcessId pid, platform::Processes& processes,
                                       console::LogSink& log) {
  const std::string command = fmt::format("taskkill /F /PID {}", pid);
  log.LogInfo("TerminateProcessL: Executing fallback: {}", command);
  const int result = processes.RunShellCommand(command);
  if (result == 0) {
    log.LogInfo(
        "TerminateProcessL: Fallback 'taskkill /F' command executed "
        "successfully for PID: {}",
        pid);
    return {};
  }
  log.LogError(
      "TerminateProcessL: Fallback 'taskkill /F' command failed or returned "
      "error. Result code: {}",
      result);
  return tl::unexpected(platform::kAccessDenied);
}

}  // namespace

platform::Result<> TerminateProcessL(const platform::ProcessHandle& handle, std::uint32_t exit_code,
                                     platform::Processes& processes, console::LogSink& log) {
  if (!handle) {
    log.LogError("TerminateProcessL: Received invalid process handle.");
    return tl::unexpected(platform::kInvalidHandle);
  }
  const auto pid = processes.Id(handle);
  if (!pid) {
    log.LogError("TerminateProcessL: Failed to get PID from handle. Error: {}", pid.error());
  }
  log.LogInfo("TerminateProcessL: Attempting termination via API for handle {}",
              pid ? fmt::format("(PID: {})", *pid) : "(PID unknown)");
  auto terminated = processes.Terminate(handle, exit_code);
  if (terminated) {
    log.LogInfo("TerminateProcessL: TerminateProcess API succeeded for PID: {}",
                pid ? fmt::to_string(*pid) : "Handle");
    return {};
  }
  log.LogError("TerminateProcessL: TerminateProcess API failed. Error: {}", terminated.error());
  if (terminated.error() != platform::kAccessDenied) {
    log.LogError(
        "TerminateProcessL: Not attempting taskkill fallback as error was not Access Denied.");
    return terminated;
  }
  log.LogWarn(
      "TerminateProcessL: Access denied with API. Attempting fallback using 'taskkill /F'...");
  if (!pid) {
    log.LogError("TerminateProcessL: Cannot use taskkill fallback because PID is unknown.");
    return tl::unexpected(platform::kAccessDenied);
  }
  return TerminateByTaskkill(*pid, processes, log);
}

}  // namespace vosk::process
