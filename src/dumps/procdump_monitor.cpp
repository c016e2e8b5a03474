// The usual way to a dump: ProcDump attached to the Core.
#include <fmt/format.h>

#include "dumps/dump_capture.h"
#include "dumps/procdump_names.h"
#include "platform/files.h"
#include "platform/system.h"
#include "text/utf.h"

namespace vosk::dumps {
std::string MonitorCommandLine(const std::filesystem::path& procdump, bool full_memory,
                               platform::ProcessId pid,
                               const std::filesystem::path& dump_directory) {
  return fmt::format("\"{}\"{}{} \"{}\"", text::PathToUtf8(procdump),
                     full_memory ? " -accepteula -ma -e " : " -accepteula -mc 1064 -e ", pid,
                     text::PathToUtf8(dump_directory));
}

bool DumpCapture::IsPresent(const std::filesystem::path& path) {
  return host_.files.Exists(path).value_or(false);
}

std::filesystem::path DumpCapture::FindProcDump() {
  const auto module = host_.system.ModulePath();
  if (!module) {
    log_.LogError("GetModuleFileNameW failed: {}", module.error());
    return {};
  }
  auto primary = module->parent_path() / kPrimaryExecutable;
  if (IsPresent(primary)) {
    log_.LogInfo("Using primary ProcDump executable: {}", primary);
    return primary;
  }
  auto fallback = module->parent_path() / kFallbackExecutable;
  if (IsPresent(fallback)) {
    log_.LogInfo("Using fallback ProcDump executable: {}", fallback);
    return fallback;
  }
  log_.LogError("ProcDump executable not found in application directory: Checked {} and fallback.",
                primary);
  return {};
}

platform::ProcessHandle DumpCapture::LaunchProcDumpMonitor(
    platform::ProcessId pid, const std::filesystem::path& dump_directory) {
  const std::filesystem::path procdump = FindProcDump();
  if (procdump.empty()) return {};
  if (!IsPresent(dump_directory)) {
    const std::string directory = text::PathToUtf8(dump_directory);
    if (const auto created = host_.files.CreateDirectories(dump_directory); !created) {
      log_.LogError("Failed to create dump directory '{}': {}", directory, created.error());
      return {};
    }
    log_.LogInfo("Created dump directory: {}", directory);
  }
  const bool full_memory = red_alert_mode_.load();
  if (full_memory) {
    log_.LogWarn("RED ALERT: Attaching ProcDump in full-memory (-ma) mode for PID {}", pid);
  }
  const std::string command_line = MonitorCommandLine(procdump, full_memory, pid, dump_directory);
  log_.LogInfo("Launching ProcDump monitor for PID {}: {}", pid, command_line);
  auto started = host_.processes.Start({.command_line = command_line,
                                        .working_directory = std::nullopt,
                                        .console = platform::ConsoleOfChild::no_window});
  if (!started) {
    log_.LogError("Failed to launch ProcDump for PID {}. CreateProcessW error code: {}", pid,
                  started.error());
    return {};
  }
  log_.LogInfo("ProcDump launched successfully. Monitor Process ID: {}", started->pid);
  return std::move(started->handle);
}

}  // namespace vosk::dumps
