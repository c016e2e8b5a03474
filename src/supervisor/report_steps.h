// What the report on a crash and the report on a running Core have in common: which files go into
// it, how it is packed, and what becomes of a dump that cannot be packed. ReportSteps does not log;
// its callers do that in their own words.
#pragma once

#include <atomic>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "console/log.h"
#include "platform/files.h"
#include "report/archive/report_archive.h"
#include "report/host_info/host_info.h"

namespace vosk::supervisor {

// What goes into a report besides its dump, and what was found on the way.
struct AdditionalFiles {
  std::filesystem::path host_info;
  bool host_info_generated = false;
  platform::Result<bool> host_info_present;
  // None if no log directory is known.
  std::optional<platform::Result<platform::FileType>> log_directory;
  std::vector<std::filesystem::path> paths;

  [[nodiscard]] bool HasHostInfo() const { return host_info_present && *host_info_present; }
  [[nodiscard]] bool HasLogs() const {
    return log_directory && *log_directory && **log_directory == platform::FileType::directory;
  }
};

// The tags of a report's name, without and with full-memory dumps.
struct ReportTags {
  std::string_view normal;
  std::string_view red_alert;
};

struct PackedReport {
  std::filesystem::path archive;
  bool complete = false;
};

// Renames a dump that cannot be packed, so that no scan takes it up again, and logs that.
void KeepUnpackedDump(platform::Files& files, console::LogSink& log,
                      const std::filesystem::path& dump);

[[nodiscard]] std::filesystem::path WithSuffix(const std::filesystem::path& path,
                                               std::string_view suffix);

class ReportSteps {
 public:
  ReportSteps(platform::Files& files, report::HostInfo& host_info, report::ReportArchive& archive,
              const std::atomic<bool>& red_alert_mode);

  // Writes the host information beside the dump and looks for the logs.
  [[nodiscard]] AdditionalFiles Gather(const std::filesystem::path& dump,
                                       const std::filesystem::path& log_root_directory);
  [[nodiscard]] PackedReport Pack(const std::filesystem::path& dump,
                                  const AdditionalFiles& additional, const ReportTags& tags);

 private:
  platform::Files& files_;
  report::HostInfo& host_info_;
  report::ReportArchive& archive_;
  const std::atomic<bool>& red_alert_mode_;
};

}  // namespace vosk::supervisor
