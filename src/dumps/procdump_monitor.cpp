#include "dumps/procdump_monitor.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>

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
                                 const std::atomic<bool>& red_alert_mode,
                                 ProcDumpAcquisition& acquisition)
    : host_(host), log_(log), red_alert_mode_(red_alert_mode), acquisition_(acquisition) {}

platform::ProcessHandle ProcDumpMonitor::LaunchProcDumpMonitor(
    platform::ProcessId pid, const std::filesystem::path& dump_directory) {
  Launched monitor = Launch(pid, dump_directory);
  if (monitor) return std::move(*monitor);
  const std::filesystem::path damaged = monitor.error();
  if (damaged.empty() || !ReplaceDamaged(damaged, dump_directory)) return {};
  monitor = Launch(pid, dump_directory);
  return monitor ? std::move(*monitor) : platform::ProcessHandle();
}

ProcDumpMonitor::Launched ProcDumpMonitor::Launch(platform::ProcessId pid,
                                                  const std::filesystem::path& dump_directory) {
  const std::filesystem::path procdump = FindExecutable();
  if (procdump.empty() || !PrepareDirectory(dump_directory)) {
    return tl::unexpected(std::filesystem::path());
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
    const bool damaged = started.error() == platform::kBadExecutable;
    return tl::unexpected(damaged ? procdump : std::filesystem::path());
  }
  log_.LogInfo("ProcDump launched successfully. Monitor Process ID: {}", started->pid);
  return std::move(started->handle);
}

bool ProcDumpMonitor::ReplaceDamaged(const std::filesystem::path& executable,
                                     const std::filesystem::path& work_directory) {
  log_.LogError("ProcDump executable is damaged, deleting it: {}", executable);
  if (const auto removed = host_.files.Remove(executable); !removed) {
    log_.LogError(
        "Failed to delete damaged ProcDump executable {}, which has to be deleted by hand: {}",
        executable, removed.error());
    return false;
  }
  if (std::exchange(fetched_anew_, true)) {
    log_.LogError("ProcDump was fetched anew before. The next start of VOSK tries again.");
    return false;
  }
  return acquisition_.FetchAnew(executable.parent_path(), work_directory);
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
