#include "supervisor/diagnostic_report.h"

namespace vosk::supervisor {

DiagnosticReport::DiagnosticReport(platform::Files& files, console::LogSink& log,
                                   dumps::ImmediateDump& immediate_dump, ReportSteps& steps,
                                   report::Uploader& uploader, UnsentReports& unsent_reports,
                                   const Places& places)
    : files_(files),
      log_(log),
      immediate_dump_(immediate_dump),
      steps_(steps),
      uploader_(uploader),
      unsent_reports_(unsent_reports),
      places_(places) {}

void DiagnosticReport::Submit(platform::ProcessId core_pid) {
  log_.LogInfo("=== Submitting Diagnostic Report ===");
  log_.LogInfo("Creating memory dump of running VELDRAN Core (PID: {})...", core_pid);
  const auto dump = immediate_dump_.CreateImmediateDump(core_pid, places_.dump_storage_directory);
  if (!dump) {
    log_.LogError("Failed to create memory dump for diagnostic report.");
    PutAwayFailedDump(dump.error());
    return;
  }
  log_.LogInfo("Dump created: {}", *dump);
  const AdditionalFiles additional = steps_.Gather(*dump, places_.log_root_directory);
  if (additional.HasHostInfo()) log_.LogInfo("Generated host info: {}", additional.host_info);
  if (additional.HasLogs()) log_.LogInfo("Adding logs from: {}", places_.log_root_directory);
  const auto [archive, packed] =
      steps_.Pack(*dump, additional, {.normal = "LIVE", .red_alert = "LIVE_FD"});
  if (packed) {
    log_.LogInfo("ZIP archive created: {}", archive);
    static_cast<void>(DeleteDump(*dump));
    Upload(archive);
  } else {
    log_.LogError("Failed to create ZIP archive for diagnostic report.");
    KeepUnpackedDump(files_, log_, *dump);
  }
  log_.LogInfo("=====================================");
}

void DiagnosticReport::PutAwayFailedDump(const dumps::FailedDump& failed) {
  // As it is, the next scan would take it for the dump of a crash.
  const std::filesystem::path& dump = failed.path;
  if (dump.empty() || !files_.Exists(dump).value_or(true)) return;
  if (failed.written && files_.SizeOf(dump) != 0) return KeepUnpackedDump(files_, log_, dump);
  if (DeleteDump(dump)) {
    log_.LogInfo("Deleted the incomplete dump of the diagnostic report: {}", dump);
  }
}

bool DiagnosticReport::DeleteDump(const std::filesystem::path& dump) {
  const auto removed = files_.Remove(dump);
  if (!removed) {
    log_.LogWarn("Could not delete the dump of the diagnostic report: {}. Error: {}", dump,
                 removed.error());
  }
  return removed.has_value();
}

void DiagnosticReport::Upload(const std::filesystem::path& archive) {
  log_.LogInfo("Uploading diagnostic report...");
  if (uploader_.TusUpload(archive)) {
    log_.LogInfo("=== Diagnostic report submitted successfully! ===");
    return;
  }
  log_.LogError("Failed to upload diagnostic report.");
  // If the renaming fails, the archive keeps its own name; it is not lost.
  static_cast<void>(files_.Replace(archive, WithSuffix(archive, kUnsentSuffix)));
  unsent_reports_.NoteFailure();
}

}  // namespace vosk::supervisor
