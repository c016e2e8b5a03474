// The usual way to a dump: ProcDump attached to the Core.
#include <fmt/format.h>

#include "dumps/dump_capture.h"
#include "platform/files.h"
#include "platform/system.h"
#include "text/utf.h"

namespace vosk::dumps {
namespace {

constexpr std::string_view kPrimaryExecutable = "procdump64.exe";
constexpr std::string_view kFallbackExecutable = "procdump.exe";

}  // namespace

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
    log_.LogError(fmt::format("GetModuleFileNameW failed: {}", module.error().value));
    return {};
  }
  auto primary = module->parent_path() / kPrimaryExecutable;
  if (IsPresent(primary)) {
    log_.LogInfo(fmt::format("Using primary ProcDump executable: {}", text::PathToUtf8(primary)));
    return primary;
  }
  auto fallback = module->parent_path() / kFallbackExecutable;
  if (IsPresent(fallback)) {
    log_.LogInfo(fmt::format("Using fallback ProcDump executable: {}", text::PathToUtf8(fallback)));
    return fallback;
  }
  log_.LogError(fmt::format(
      "ProcDump executable not found in application directory: Checked {} and fallback.",
      text::PathToUtf8(primary)));
  return {};
}

platform::ProcessHandle DumpCapture::LaunchProcDumpMonitor(
    platform::ProcessId pid, const std::filesystem::path& dump_directory) {
  const std::filesystem::path procdump = FindProcDump();
  if (procdump.empty()) return {};
  if (!IsPresent(dump_directory)) {
    const std::string directory = text::PathToUtf8(dump_directory);
    if (const auto created = host_.files.CreateDirectories(dump_directory); !created) {
      log_.LogError(
          fmt::format("Failed to create dump directory '{}': {}", directory, created.error().text));
      return {};
    }
    log_.LogInfo(fmt::format("Created dump directory: {}", directory));
  }
  const bool full_memory = red_alert_mode_.load();
  if (full_memory) {
    log_.LogWarn(
        fmt::format("RED ALERT: Attaching ProcDump in full-memory (-ma) mode for PID {}", pid));
  }
  const std::string command_line = MonitorCommandLine(procdump, full_memory, pid, dump_directory);
  log_.LogInfo(fmt::format("Launching ProcDump monitor for PID {}: {}", pid, command_line));
  auto started = host_.processes.Start({.command_line = command_line,
                                        .working_directory = std::nullopt,
                                        .console = platform::ConsoleOfChild::no_window});
  if (!started) {
    log_.LogError(fmt::format("Failed to launch ProcDump for PID {}. CreateProcessW error code: {}",
                              pid, started.error().value));
    return {};
  }
  log_.LogInfo(fmt::format("ProcDump launched successfully. Monitor Process ID: {}", started->pid));
  return std::move(started->handle);
}

}  // namespace vosk::dumps
