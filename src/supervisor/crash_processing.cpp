#include "supervisor/crash_processing.h"

#include <fmt/format.h>

namespace vosk::supervisor {
namespace {

constexpr std::uint64_t kBytesPerMegabyte = 1'048'576;
constexpr std::string_view kRule = "-------------------------------------------------------";
static_assert(kRule.size() == 55);

}  // namespace

std::string ExitCodeText(const CoreEnd& end) {
  return end.exit_code ? fmt::to_string(*end.exit_code) : "N/A";
}

CrashProcessing::CrashProcessing(platform::Files& files, console::LogSink& log, ReportSteps& steps,
                                 report::Uploader& uploader, UnsentReports& unsent_reports)
    : files_(files),
      log_(log),
      steps_(steps),
      uploader_(uploader),
      unsent_reports_(unsent_reports) {}

void CrashProcessing::ProcessNewDumps(const std::filesystem::path& dump_directory,
                                      const std::filesystem::path& log_root_directory,
                                      const CoreEnd& end) {
  log_.LogInfo("Scanning dump storage for new crash dumps: {}", dump_directory);
  const Paths dumps = FindDumps(dump_directory);
  if (dumps.empty()) {
    log_.LogInfo("No new dump files found in storage directory.");
    if (end.is_crash) {
      log_.LogWarn(
          "CRITICAL: Target process termination indicated a crash (Exit "
          "Code: {}), but NO DUMP FILE was found!",
          ExitCodeText(end));
    }
    return;
  }
  log_.LogInfo("Found {} new dump file(s) to process.", dumps.size());
  for (const auto& dump : dumps) {
    try {
      ProcessDump(dump, log_root_directory);
    } catch (const std::exception& problem) {
      log_.LogError("Exception while processing dump file {}: {}", dump, problem.what());
    }
  }
}

CrashProcessing::Paths CrashProcessing::FindDumps(const std::filesystem::path& dump_directory) {
  Paths dumps;
  try {
    CollectDumps(dump_directory, dumps);
  } catch (const std::exception& problem) {
    log_.LogError("Exception during dump directory iteration: {}", problem.what());
  }
  return dumps;
}

void CrashProcessing::CollectDumps(const std::filesystem::path& dump_directory, Paths& dumps) {
  const auto walk = files_.Walk(dump_directory, platform::WalkDepth::direct_entries);
  if (!walk) {
    log_.LogError("Error iterating dump directory: {}", walk.error());
    return;
  }
  while (true) {
    const auto entry = (*walk)->Next();
    if (!entry) {
      log_.LogError("Error iterating dump directory: {}", entry.error());
      return;
    }
    if (!*entry) return;
    try {
      AddIfDump(**entry, dumps);
    } catch (const std::exception& problem) {
      log_.LogError("Exception processing potential dump file: {}", problem.what());
    }
  }
}

void CrashProcessing::AddIfDump(const std::filesystem::path& path, Paths& dumps) {
  const auto type = files_.TypeOf(path);
  if (!type) {
    log_.LogError("Error checking file type for {}: {}", path, type.error());
    return;
  }
  if (*type != platform::FileType::regular || path.extension() != ".dmp") return;
  if (sent_dumps_.contains(path)) {
    PutAwaySentDump(path);
  } else {
    dumps.push_back(path);
  }
}

void CrashProcessing::ProcessDump(const std::filesystem::path& dump,
                                  const std::filesystem::path& log_root_directory) {
  if (const auto exists = files_.Exists(dump); exists && !*exists) return;
  log_.LogInfo(kRule);
  log_.LogInfo("Processing dump file: {}", dump);
  const AdditionalFiles additional = steps_.Gather(dump, log_root_directory);
  LogAdditionalFiles(dump, log_root_directory, additional);
  const auto [archive, packed] =
      steps_.Pack(dump, additional, {.normal = "CRASH", .red_alert = "CRASH_FD"});
  if (!packed) {
    KeepUnpackedDump(dump, additional.host_info);
    log_.LogInfo(kRule);
    return;
  }
  log_.LogInfo(
      "ZIP archive created successfully. Deleting original dump file to save disk space during "
      "upload...");
  const bool dump_deleted = DeletePackedDump(dump);
  log_.LogInfo("Attempting TUS upload: {}", archive);
  if (uploader_.TusUpload(archive)) {
    log_.LogInfo("Successfully uploaded and processed: {}", archive);
    DeleteHostInfo(additional.host_info);
    if (!dump_deleted) PutAwaySentDump(dump);
  } else {
    KeepUnsentArchive(archive, dump_deleted);
    unsent_reports_.NoteFailure();
  }
  log_.LogInfo(kRule);
}

void CrashProcessing::LogAdditionalFiles(const std::filesystem::path& dump,
                                         const std::filesystem::path& log_root_directory,
                                         const AdditionalFiles& additional) {
  if (!additional.host_info_generated) {
    log_.LogWarn("Failed to generate host info file for: {}", dump);
  }
  if (additional.HasHostInfo()) {
    log_.LogInfo("Generated and added host info file: {}", additional.host_info);
  } else if (additional.host_info_generated) {
    const auto& present = additional.host_info_present;
    log_.LogWarn("Host info file generated but not found/inaccessible: {}{}", additional.host_info,
                 present ? "" : fmt::format(" Error: {}", present.error()));
  }
  if (!additional.log_directory) return;
  if (additional.HasLogs()) {
    log_.LogInfo("Adding log directory to zip list: {}", log_root_directory);
    return;
  }
  const auto& type = *additional.log_directory;
  log_.LogWarn("Log root dir path set but not found/accessible, logs not added: {}{}",
               log_root_directory, type ? "" : fmt::format(" Error: {}", type.error()));
}

void CrashProcessing::KeepUnpackedDump(const std::filesystem::path& dump,
                                       const std::filesystem::path& host_info) {
  log_.LogError("Failed to create ZIP archive. Renaming dump to .dmp.failed_zip");
  try {
    supervisor::KeepUnpackedDump(files_, log_, dump);
    if (!files_.Exists(host_info).value_or(false)) return;
    if (const auto removed = files_.Remove(host_info); removed) {
      log_.LogInfo("Deleted host info file after zip failure: {}", host_info);
    } else {
      log_.LogWarn("Failed to delete host info file: {}", removed.error());
    }
  } catch (const std::exception& problem) {
    log_.LogError("Exception while handling zip failure for '{}': {}", dump, problem.what());
  }
}

bool CrashProcessing::DeletePackedDump(const std::filesystem::path& dump) {
  try {
    const auto exists = files_.Exists(dump);
    if (!exists) {
      log_.LogError("Error checking dump file existence: {}", exists.error());
      return false;
    }
    if (!*exists) return false;
    const std::uint64_t size = files_.SizeOf(dump).value_or(0);
    if (const auto removed = files_.Remove(dump); !removed) {
      log_.LogError(
          "Failed to delete original dump file: {}. Error: {}. Upload will "
          "proceed but disk space not optimized.",
          dump, removed.error());
      return false;
    }
    log_.LogInfo("Successfully deleted original dump file: {} (freed {} MB during upload)", dump,
                 size / kBytesPerMegabyte);
    return true;
  } catch (const std::exception& problem) {
    log_.LogError("Exception while deleting original dump file '{}': {}. Upload will proceed.",
                  dump, problem.what());
    return false;
  }
}

void CrashProcessing::KeepUnsentArchive(const std::filesystem::path& archive, bool dump_deleted) {
  log_.LogError("Failed to upload zip via TUS: {}. Renaming to .zip.failed_upload", archive);
  try {
    const auto kept = WithSuffix(archive, kUnsentSuffix);
    if (const auto renamed = files_.Replace(archive, kept); !renamed) {
      log_.LogError("Failed to rename failed upload zip '{}' to '{}'. Error: {}", archive, kept,
                    renamed.error());
      return;
    }
    log_.LogInfo("Renamed failed upload to: {}", kept);
  } catch (const std::exception& problem) {
    log_.LogError("Exception while renaming failed upload zip '{}': {}", archive, problem.what());
    return;
  }
  if (dump_deleted) {
    log_.LogWarn(
        "IMPORTANT: Original dump was already deleted. The failed upload ZIP contains the only "
        "copy of the crash dump!");
  } else {
    log_.LogInfo(
        "Original dump file was not deleted due to earlier error, preserving data redundancy.");
  }
  log_.LogInfo("Host info file preserved for debugging.");
}

void CrashProcessing::PutAwaySentDump(const std::filesystem::path& dump) {
  if (!files_.Exists(dump).value_or(true)) return;
  if (files_.Remove(dump)) {
    log_.LogInfo("Deleted original dump file after its upload: {}", dump);
    return;
  }
  // As a ".dmp", it would be sent once more.
  const auto sent = WithSuffix(dump, ".sent");
  if (const auto renamed = files_.Replace(dump, sent)) {
    log_.LogInfo("Renamed dump that was sent but cannot be deleted to: {}", sent);
  } else {
    sent_dumps_.insert(dump);
    log_.LogWarn("Failed to put away a dump that was sent: {}. Error: {}", dump, renamed.error());
  }
}

void CrashProcessing::DeleteHostInfo(const std::filesystem::path& host_info) {
  try {
    const auto exists = files_.Exists(host_info);
    if (!exists) {
      log_.LogWarn("Error checking host info file existence: {}", exists.error());
      return;
    }
    if (!*exists) return;
    if (const auto removed = files_.Remove(host_info); removed) {
      log_.LogInfo("Deleted host info: {}", host_info);
    } else {
      log_.LogWarn("Failed to delete host info: {} Error: {}", host_info, removed.error());
    }
  } catch (const std::exception& problem) {
    log_.LogError("Exception during post-upload cleanup: {}", problem.what());
  }
}

}  // namespace vosk::supervisor
