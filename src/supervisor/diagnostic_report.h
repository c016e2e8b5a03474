// A report of the running Core, made because the operator asks for it.
#pragma once

#include <atomic>
#include <filesystem>
#include <vector>

#include "console/log.h"
#include "dumps/immediate_dump.h"
#include "platform/files.h"
#include "report/archive/report_archive.h"
#include "report/host_info/host_info.h"
#include "report/upload/uploader.h"
#include "supervisor/places.h"

namespace vosk::supervisor {

class DiagnosticReport {
 public:
  DiagnosticReport(platform::Files& files, console::LogSink& log,
                   dumps::ImmediateDump& immediate_dump, report::HostInfo& host_info,
                   report::ReportArchive& archive, report::Uploader& uploader,
                   const std::atomic<bool>& red_alert_mode);

  // Dumps the running Core, packs the dump and uploads the archive. The Core goes on; a report that
  // cannot be sent is kept as ".zip.failed_upload".
  void Submit(platform::ProcessId core_pid, const Places& places);

 private:
  [[nodiscard]] std::vector<std::filesystem::path> GatherAdditionalFiles(
      const std::filesystem::path& dump, const std::filesystem::path& log_root_directory);
  void Upload(const std::filesystem::path& archive);

  platform::Files& files_;
  console::LogSink& log_;
  dumps::ImmediateDump& immediate_dump_;
  report::HostInfo& host_info_;
  report::ReportArchive& archive_;
  report::Uploader& uploader_;
  const std::atomic<bool>& red_alert_mode_;
};

}  // namespace vosk::supervisor
