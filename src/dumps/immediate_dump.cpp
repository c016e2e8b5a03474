#include "dumps/immediate_dump.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "platform/clock.h"
#include "platform/dump_writer.h"
#include "platform/files.h"
#include "platform/processes.h"

namespace vosk::dumps {
namespace {

using platform::ErrorCode;

constexpr std::uint64_t kBytesPerMegabyte = 1'048'576;

// The dump writer reports some errors as plain numbers and some as HRESULTs made of them.
constexpr std::uint32_t PlainCode(ErrorCode code) {
  constexpr std::uint32_t kWin32Facility = 0x8007'0000;
  return (code.value & 0xFFFF'0000) == kWin32Facility ? code.value & 0xFFFF : code.value;
}

std::string_view ExplainDumpError(ErrorCode code) {
  const ErrorCode plain{PlainCode(code)};
  if (plain == platform::kDiskFull) {
    return " (ERROR_DISK_FULL - Not enough disk space for dump file)";
  }
  if (plain == platform::kAccessDenied) {
    return " (ERROR_ACCESS_DENIED - Run VOSK as Administrator)";
  }
  if (plain == platform::kGeneralFailure) {
    return " (ERROR_GEN_FAILURE - General failure writing dump)";
  }
  if (plain == platform::kInvalidParameter) {
    return " (ERROR_INVALID_PARAMETER - Check process access rights or dump type flags)";
  }
  return "";
}

}  // namespace

ImmediateDump::ImmediateDump(const platform::Host& host, console::LogSink& log,
                             const std::atomic<bool>& red_alert_mode)
    : host_(host), log_(log), red_alert_mode_(red_alert_mode) {}

tl::expected<std::filesystem::path, FailedDump> ImmediateDump::CreateImmediateDump(
    platform::ProcessId pid, const std::filesystem::path& dump_directory) {
  log_.LogInfo("Creating immediate process dump for PID {} using MiniDumpWriteDump...", pid);
  if (!IsPresent(dump_directory)) {
    if (const auto created = host_.files.CreateDirectories(dump_directory); !created) {
      log_.LogError("Failed to create dump directory: {}", created.error());
      return tl::unexpected(FailedDump{});
    }
  }
  const std::tm now = host_.clock.ToLocal(host_.clock.WallNow());
  auto path = dump_directory / fmt::format("VELDRAN_Core_{:%y%m%d_%H%M%S}.dmp", now);
  log_.LogInfo("Dump file path: {}", path);
  if (!WriteDump(pid, path)) return tl::unexpected(FailedDump{.path = path});
  if (!CheckDump(path)) return tl::unexpected(FailedDump{.path = path, .written = true});
  return path;
}

bool ImmediateDump::IsPresent(const std::filesystem::path& path) {
  return host_.files.Exists(path).value_or(false);
}

bool ImmediateDump::WriteDump(platform::ProcessId pid, const std::filesystem::path& path) {
  constexpr std::uint32_t kDumpAccess = platform::access::kQueryInformation |
                                        platform::access::kReadMemory |
                                        platform::access::kDuplicateHandles;
  const auto process = host_.processes.Open(kDumpAccess, pid);
  if (!process) {
    log_.LogError("Failed to open process {} for dump. Error: {}", pid, process.error());
    if (process.error() == platform::kAccessDenied) {
      log_.LogError("Access denied. Try running VOSK as Administrator.");
    } else if (process.error() == platform::kInvalidParameter) {
      log_.LogError("Invalid PID - process may have exited.");
    }
    return false;
  }
  const auto file = host_.dump_writer.CreateDumpFile(path);
  if (!file) {
    log_.LogError("Failed to create dump file. Error: {}", file.error());
    return false;
  }
  log_.LogInfo("Process handle: {}, File handle: {}, Target PID: {}", process->Value(),
               file->Value(), pid);
  const platform::ProcessId handle_pid = host_.processes.Id(*process).value_or(0);
  if (handle_pid != pid) {
    log_.LogError("Process handle PID mismatch! Handle PID: {}, Target PID: {}", handle_pid, pid);
    return false;
  }
  const bool full_memory = red_alert_mode_.load();
  log_.LogInfo("Writing memory dump (this may take a moment)...");
  if (full_memory) {
    log_.LogWarn(
        "RED ALERT: Writing full-memory dump (MiniDumpWithFullMemory) - this may be large.");
  }
  const auto written = host_.dump_writer.WriteDump(
      *process, pid, *file,
      full_memory ? platform::kDumpWithFullMemory : platform::kDumpWithThreadInfo);
  if (!written) {
    log_.LogError("MiniDumpWriteDump failed. Error: {}{}", written.error(),
                  ExplainDumpError(written.error().code));
    return false;
  }
  return true;
}

bool ImmediateDump::CheckDump(const std::filesystem::path& path) {
  if (!IsPresent(path)) {
    log_.LogError("Dump file was not created at expected path.");
    return false;
  }
  const std::uint64_t size = host_.files.SizeOf(path).value_or(0);
  if (size == 0) {
    log_.LogError("Dump file is empty or could not read size.");
    return false;
  }
  log_.LogInfo("Immediate dump created successfully: {} (Size: {} MB)", path,
               size / kBytesPerMegabyte);
  return true;
}

}  // namespace vosk::dumps
