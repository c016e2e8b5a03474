// Turns every dump that a crash left behind into an uploaded report.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "console/log.h"
#include "platform/files.h"
#include "report/archive/report_archive.h"
#include "report/host_info/host_info.h"
#include "report/upload/uploader.h"

namespace vosk::supervisor {

// How the Core ended, as the monitoring loop judged it.
struct CoreEnd {
  bool is_crash = false;
  std::optional<std::uint32_t> exit_code;  // none: it could not be read
};

// The decimal exit code, or "N/A".
[[nodiscard]] std::string ExitCodeText(const CoreEnd& end);

class CrashProcessing {
 public:
  CrashProcessing(platform::Files& files, console::LogSink& log, report::HostInfo& host_info,
                  report::ReportArchive& archive, report::Uploader& uploader,
                  const std::atomic<bool>& red_alert_mode);

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
  void AddHostInfo(const std::filesystem::path& dump, const std::filesystem::path& host_info,
                   Paths& additional_files);
  void AddLogs(const std::filesystem::path& log_root_directory, Paths& additional_files);
  void KeepUnpackedDump(const std::filesystem::path& dump, const std::filesystem::path& host_info);
  [[nodiscard]] bool DeletePackedDump(const std::filesystem::path& dump);
  void KeepUnsentArchive(const std::filesystem::path& archive, bool dump_deleted);
  void DeleteHostInfo(const std::filesystem::path& host_info);

  platform::Files& files_;
  console::LogSink& log_;
  report::HostInfo& host_info_;
  report::ReportArchive& archive_;
  report::Uploader& uploader_;
  const std::atomic<bool>& red_alert_mode_;
};

}  // namespace vosk::supervisor
