#include "dumps/procdump_monitor.h"

#include <fmt/format.h>

#include <optional>
#include <string>

#include "dumps/procdump_search.h"
#include "platform/files.h"
#include "platform/system.h"
#include "text/utf.h"

namespace vosk::dumps {
namespace {

// `full_memory` asks for dumps of the whole memory.
std::string MonitorCommandLine(const std::filesystem::path& procdump, bool full_memory,
                               platform::ProcessId pid,
                               const std::filesystem::path& dump_directory) {
  return fmt::format("\"{}\"{}{} \"{}\"", text::PathToUtf8(procdump),
                     full_memory ? " -accepteula -ma -e " : " -accepteula -mc 1064 -e ", pid,
                     text::PathToUtf8(dump_directory));
}

}  // namespace

ProcDumpMonitor::ProcDumpMonitor(const platform::Host& host, console::LogSink& log,
                                 const std::atomic<bool>& red_alert_mode)
    : host_(host), log_(log), red_alert_mode_(red_alert_mode) {}

platform::ProcessHandle ProcDumpMonitor::LaunchProcDumpMonitor(
    platform::ProcessId pid, const std::filesystem::path& dump_directory) {
  const std::filesystem::path procdump = FindExecutable();
  if (procdump.empty() || !PrepareDirectory(dump_directory)) return {};
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

std::filesystem::path ProcDumpMonitor::FindExecutable() {
  const auto module = host_.system.ModulePath();
  if (!module) {
    log_.LogError("GetModuleFileNameW failed: {}", module.error());
    return {};
  }
  const auto found = FindProcDump(host_.files, module->parent_path());
  if (!found) {
    log_.LogError(
        "ProcDump executable not found in application directory: Checked {} and fallback.",
        module->parent_path() / kPrimaryExecutable);
    return {};
  }
  if (found->is_fallback) {
    log_.LogInfo("Using fallback ProcDump executable: {}", found->path);
  } else {
    log_.LogInfo("Using primary ProcDump executable: {}", found->path);
  }
  return found->path;
}

bool ProcDumpMonitor::PrepareDirectory(const std::filesystem::path& directory) {
  if (host_.files.Exists(directory).value_or(false)) return true;
  if (const auto created = host_.files.CreateDirectories(directory); !created) {
    log_.LogError("Failed to create dump directory '{}': {}", directory, created.error());
    return false;
  }
  log_.LogInfo("Created dump directory: {}", directory);
  return true;
}

}  // namespace vosk::dumps
