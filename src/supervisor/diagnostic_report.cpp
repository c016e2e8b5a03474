#include "supervisor/diagnostic_report.h"

#include <fmt/format.h>

#include "supervisor/report_files.h"
#include "text/utf.h"

namespace vosk::supervisor {

DiagnosticReport::DiagnosticReport(platform::Files& files, console::LogSink& log,
                                   dumps::ImmediateDump& immediate_dump,
                                   report::HostInfo& host_info, report::ReportArchive& archive,
                                   report::Uploader& uploader,
                                   const std::atomic<bool>& red_alert_mode)
    : files_(files),
      log_(log),
      immediate_dump_(immediate_dump),
      host_info_(host_info),
      archive_(archive),
      uploader_(uploader),
      red_alert_mode_(red_alert_mode) {}

void DiagnosticReport::Submit(platform::ProcessId core_pid, const Places& places) {
  log_.LogInfo("=== Submitting Diagnostic Report ===");
  log_.LogInfo("Creating memory dump of running VELDRAN Core (PID: {})...", core_pid);
  const auto dump = immediate_dump_.CreateImmediateDump(core_pid, places.dump_storage_directory);
  if (!dump) {
    log_.LogError("Failed to create memory dump for diagnostic report.");
    return;
  }
  log_.LogInfo("Dump created: {}", *dump);
  const auto additional_files = GatherAdditionalFiles(*dump, places.log_root_directory);
  const auto archive =
      archive_.MakeReportZipPath(*dump, red_alert_mode_.load() ? "LIVE_FD" : "LIVE");
  const bool packed = archive_.CreateReportZip(archive, *dump, additional_files);
  if (packed) {
    log_.LogInfo("ZIP archive created: {}", archive);
  } else {
    log_.LogError("Failed to create ZIP archive for diagnostic report.");
  }
  if (const auto removed = files_.Remove(*dump); !removed) {
    log_.LogWarn("Could not delete the dump of the diagnostic report: {}. Error: {}", *dump,
                 removed.error());
  }
  if (packed) Upload(archive);
  log_.LogInfo("=====================================");
}

std::vector<std::filesystem::path> DiagnosticReport::GatherAdditionalFiles(
    const std::filesystem::path& dump, const std::filesystem::path& log_root_directory) {
  std::vector<std::filesystem::path> additional_files;
  const auto host_info = HostInfoPathFor(dump);
  static_cast<void>(host_info_.GenerateHostInfoFile(host_info));
  if (files_.Exists(host_info).value_or(false)) {
    log_.LogInfo("Generated host info: {}", host_info);
    additional_files.push_back(host_info);
  }
  const auto type = log_root_directory.empty() ? tl::unexpected(platform::Error{})
                                               : files_.TypeOf(log_root_directory);
  if (type && *type == platform::FileType::directory) {
    log_.LogInfo("Adding logs from: {}", log_root_directory);
    additional_files.push_back(log_root_directory);
  }
  return additional_files;
}

void DiagnosticReport::Upload(const std::filesystem::path& archive) {
  log_.LogInfo("Uploading diagnostic report...");
  if (uploader_.TusUpload(archive)) {
    log_.LogInfo("=== Diagnostic report submitted successfully! ===");
    return;
  }
  log_.LogError("Failed to upload diagnostic report.");
  // A rename that fails leaves the archive under its own name; it is not lost.
  static_cast<void>(ReplaceFile(files_, archive, WithSuffix(archive, ".failed_upload")));
}

}  // namespace vosk::supervisor
