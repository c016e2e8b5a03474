#include "supervisor/report_steps.h"

namespace vosk::supervisor {
namespace {

std::filesystem::path HostInfoPathFor(const std::filesystem::path& dump) {
  auto name = dump.stem();
  name += "_hostInfo.txt";
  return dump.parent_path() / name;
}

}  // namespace

std::filesystem::path WithSuffix(const std::filesystem::path& path, std::string_view suffix) {
  auto renamed = path;
  renamed += suffix;
  return renamed;
}

void KeepUnpackedDump(platform::Files& files, console::LogSink& log,
                      const std::filesystem::path& dump) {
  const auto kept = WithSuffix(dump, ".failed_zip");
  if (const auto renamed = files.Replace(dump, kept)) {
    log.LogInfo("Renamed dump after zip failure to: {}", kept);
  } else {
    log.LogError("Failed to rename dump after zip failure '{}'. Error: {}", dump, renamed.error());
  }
}

ReportSteps::ReportSteps(platform::Files& files, report::HostInfo& host_info,
                         report::ReportArchive& archive, const std::atomic<bool>& red_alert_mode)
    : files_(files), host_info_(host_info), archive_(archive), red_alert_mode_(red_alert_mode) {}

AdditionalFiles ReportSteps::Gather(const std::filesystem::path& dump,
                                    const std::filesystem::path& log_root_directory) {
  AdditionalFiles found;
  found.host_info = HostInfoPathFor(dump);
  found.host_info_generated = host_info_.GenerateHostInfoFile(found.host_info);
  found.host_info_present = files_.Exists(found.host_info);
  if (found.HasHostInfo()) found.paths.push_back(found.host_info);
  if (!log_root_directory.empty()) found.log_directory = files_.TypeOf(log_root_directory);
  if (found.HasLogs()) found.paths.push_back(log_root_directory);
  return found;
}

PackedReport ReportSteps::Pack(const std::filesystem::path& dump, const AdditionalFiles& additional,
                               const ReportTags& tags) {
  const std::string_view tag = red_alert_mode_.load() ? tags.red_alert : tags.normal;
  PackedReport packed{.archive = archive_.MakeReportZipPath(dump, tag)};
  packed.complete = archive_.CreateReportZip(packed.archive, dump, additional.paths);
  return packed;
}

}  // namespace vosk::supervisor
