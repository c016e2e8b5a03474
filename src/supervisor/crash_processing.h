// Turns every dump that a crash left behind into an uploaded report.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "console/log.h"
#include "platform/files.h"
#include "report/upload/uploader.h"
#include "supervisor/report_steps.h"
#include "supervisor/unsent_reports.h"

namespace vosk::supervisor {

// How the Core ended, as the monitoring loop judged it.
struct CoreEnd {
  bool is_crash = false;
  std::optional<std::uint32_t> exit_code;  // none: it could not be read
};

// Returns the decimal exit code, or "N/A".
[[nodiscard]] std::string ExitCodeText(const CoreEnd& end);

class CrashProcessing {
 public:
  CrashProcessing(platform::Files& files, console::LogSink& log, ReportSteps& steps,
                  report::Uploader& uploader, UnsentReports& unsent_reports);

  // Packs and uploads every ".dmp" file in the directory. Whatever fails, no dump is lost: it ends
  // uploaded, as ".dmp.failed_zip", inside a ".zip.failed_upload", or untouched.
  void ProcessNewDumps(const std::filesystem::path& dump_directory,
                       const std::filesystem::path& log_root_directory, const CoreEnd& end);

 private:
  using Paths = std::vector<std::filesystem::path>;

  [[nodiscard]] Paths FindDumps(const std::filesystem::path& dump_directory);
  void CollectDumps(const std::filesystem::path& dump_directory, Paths& dumps);
  void AddIfDump(const std::filesystem::path& path, Paths& dumps);
  void ProcessDump(const std::filesystem::path& dump,
                   const std::filesystem::path& log_root_directory);
  void LogAdditionalFiles(const std::filesystem::path& dump,
                          const std::filesystem::path& log_root_directory,
                          const AdditionalFiles& additional);
  void KeepUnpackedDump(const std::filesystem::path& dump, const std::filesystem::path& host_info);
  [[nodiscard]] bool DeletePackedDump(const std::filesystem::path& dump);
  void KeepUnsentArchive(const std::filesystem::path& archive, bool dump_deleted);
  // Sees to it that a dump that is with the server already is not found again.
  void PutAwaySentDump(const std::filesystem::path& dump);
  void DeleteHostInfo(const std::filesystem::path& host_info);

  platform::Files& files_;
  console::LogSink& log_;
  ReportSteps& steps_;
  report::Uploader& uploader_;
  UnsentReports& unsent_reports_;
  std::set<std::filesystem::path> sent_dumps_;  // those that can be neither deleted nor renamed
};

}  // namespace vosk::supervisor
