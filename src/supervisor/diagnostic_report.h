// A report on the running Core, made when the operator asks for it.
#pragma once

#include <filesystem>

#include "console/log.h"
#include "dumps/immediate_dump.h"
#include "platform/files.h"
#include "report/upload/uploader.h"
#include "supervisor/places.h"
#include "supervisor/report_steps.h"
#include "supervisor/unsent_reports.h"

namespace vosk::supervisor {

class DiagnosticReport {
 public:
  DiagnosticReport(platform::Files& files, console::LogSink& log,
                   dumps::ImmediateDump& immediate_dump, ReportSteps& steps,
                   report::Uploader& uploader, UnsentReports& unsent_reports, const Places& places);

  // Dumps the running Core, packs the dump and uploads the archive. The Core goes on; a report that
  // cannot be sent stays as ".zip.failed_upload" until the next start.
  void Submit(platform::ProcessId core_pid);

 private:
  void PutAwayFailedDump(const dumps::FailedDump& failed);
  [[nodiscard]] bool DeleteDump(const std::filesystem::path& dump);
  void Upload(const std::filesystem::path& archive);

  platform::Files& files_;
  console::LogSink& log_;
  dumps::ImmediateDump& immediate_dump_;
  ReportSteps& steps_;
  report::Uploader& uploader_;
  UnsentReports& unsent_reports_;
  const Places& places_;
};

}  // namespace vosk::supervisor
