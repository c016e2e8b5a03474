#include "report/archive/report_archive.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include "report/archive/archive_names.h"
#include "report/archive/file_source.h"
#include "text/utf.h"

namespace vosk::report {

using std::filesystem::path;

namespace {

// Share of the progress display that the dump takes, in percent.
constexpr double kDumpShare = 95.0;

}  // namespace

ReportArchive::ReportArchive(platform::Files& files, platform::System& system,
                             platform::Clock& clock, console::LogSink& log,
                             console::TransferProgress& progress)
    : files_(files), system_(system), clock_(clock), log_(log), progress_(progress) {}

path ReportArchive::MakeReportZipPath(const path& dump_path, std::string_view tag) {
  return ReportZipPath(dump_path, system_.ComputerName().value_or("UNKNOWN"), tag);
}

bool ReportArchive::CreateReportZip(const path& zip_path, const path& dump_path,
                                    const std::vector<path>& optional_paths) {
  log_.LogInfo("Creating Zip archive: {}", zip_path);
  progress_.Begin("Zipping");

  zip::ZipWriter zip;
  if (!PrepareTarget(zip_path) || !OpenZip(zip, zip_path)) {
    progress_.Reset();
    return false;
  }
  if (FillZip(zip, zip_path, dump_path, optional_paths)) return true;

  DiscardZip(zip, zip_path);
  progress_.Reset();
  return false;
}

bool ReportArchive::PrepareTarget(const path& zip_path) try {
  const path directory = zip_path.parent_path();
  if (!directory.empty()) {
    if (const auto created = files_.CreateDirectories(directory); !created) {
      log_.LogError("Failed to create directory for zip file [{}]. Error: {}", directory,
                    created.error());
      return false;
    }
  }
  MakeRoomForZip(zip_path);
  return true;
} catch (const std::exception& problem) {
  log_.LogError("Error preparing directory/removing old zip [{}]: {}", zip_path, problem.what());
  return false;
}

void ReportArchive::MakeRoomForZip(const path& zip_path) {
  const auto exists = files_.Exists(zip_path);
  if (exists && !*exists) return;
  const auto removed = files_.Remove(zip_path);
  if (removed) return;
  log_.LogWarn("Failed to remove existing zip file [{}] ({}). Attempting to overwrite.", zip_path,
               removed.error());
}

bool ReportArchive::OpenZip(zip::ZipWriter& zip, const path& zip_path) {
  const auto text = text::TryPathToUtf8(zip_path);
  if (!text) {
    log_.LogError("Failed to convert zip path to string.");
    return false;
  }
  const auto opened = zip.Open(*text);
  if (!opened) {
    log_.LogError("mz_zip_writer_init_file_v2() failed for {}! Error: {}", *text, opened.error());
  }
  return opened.has_value();
}

bool ReportArchive::FillZip(zip::ZipWriter& zip, const path& zip_path, const path& dump_path,
                            const std::vector<path>& optional_paths) try {
  if (!AddDump(zip, dump_path)) return false;
  for (const path& optional : optional_paths) AddOptionalPath(zip, optional);

  progress_.Set(90.0);
  const auto finalized = zip.Finalize();
  if (finalized) {
    log_.LogInfo("Successfully created zip archive structure: {}", zip_path);
    progress_.Set(100.0);
  } else {
    log_.LogError("mz_zip_writer_finalize_archive() failed! Error: {}", finalized.error());
  }
  if (const auto ended = zip.End(); !ended) {
    log_.LogError("mz_zip_writer_end() failed! Error: {}. File handle may remain locked.",
                  ended.error());
  }
  return finalized.has_value();
} catch (const std::exception& problem) {
  log_.LogError("Exception creating zip '{}': {}", zip_path, problem.what());
  return false;
}

bool ReportArchive::AddDump(zip::ZipWriter& zip, const path& dump_path) {
  if (!text::TryPathToUtf8(dump_path)) {
    log_.LogError("Failed to convert dump path to string.");
    return false;
  }
  auto stream = files_.OpenForReading(dump_path);
  if (!stream) {
    log_.LogError("Failed to open dump file for zip compression: {}", dump_path);
    return false;
  }
  std::uint64_t size = 0;
  FileSource source(std::move(*stream), [&](std::uint64_t end) {
    const double share = size == 0 ? 1.0 : static_cast<double>(end) / static_cast<double>(size);
    progress_.Set(std::min(share * kDumpShare, kDumpShare));
    pulse_.Beat();
  });
  if (!source.Size()) {
    log_.LogError("Failed to read the size of the dump file for zip compression: {}", dump_path);
    return false;
  }
  size = *source.Size();
  const std::string name = FileNameText(dump_path);
  const auto now = std::chrono::system_clock::to_time_t(clock_.WallNow());
  if (const auto added = zip.AddWhole(DumpEntryName(dump_path), source, size, now); !added) {
    log_.LogError("mz_zip_writer_add_read_buf_callback() failed for dump file [{}]. Error: {}",
                  name, added.error());
    return false;
  }
  log_.LogInfo("Added dump file [{}] to zip.", name);
  progress_.Set(kDumpShare);
  return true;
}

zip::ZipWriter::Outcome ReportArchive::AddFile(zip::ZipWriter& zip, const std::string& entry_name,
                                               const path& file) {
  // In miniz's words, like all else that goes wrong with an entry.
  const auto modified = files_.LastWriteTime(file);
  if (!modified) return tl::unexpected<std::string>("file stat failed");
  auto stream = files_.OpenForReading(file);
  if (!stream) return tl::unexpected<std::string>("file open failed");
  FileSource source(std::move(*stream), [this](std::uint64_t) { pulse_.Beat(); });
  if (!source.Size()) return tl::unexpected<std::string>("file seek failed");
  return zip.AddUpTo(entry_name, source, *source.Size(),
                     std::chrono::system_clock::to_time_t(*modified));
}

void ReportArchive::AddOptionalPath(zip::ZipWriter& zip, const path& path) {
  const auto exists = files_.Exists(path);
  if (!exists || !*exists) {
    const std::string reason =
        exists ? std::make_error_code(std::errc::no_such_file_or_directory).message()
               : exists.error().text;
    log_.LogWarn("Optional path not found or error checking [{}], skipping. Error: {}", path,
                 reason);
    return;
  }
  const auto type = files_.TypeOf(path);
  if (!type) {
    log_.LogError("Error checking type of optional path [{}]: {}", path, type.error());
    return;
  }
  if (*type == platform::FileType::regular) {
    AddOptionalFile(zip, path);
  } else if (*type == platform::FileType::directory) {
    const std::string folder = FolderEntryName(path);
    log_.LogInfo("Adding optional directory: {} as {}/", path, folder);
    if (!AddDirectoryToZip(zip, path, folder)) {
      log_.LogWarn("Issues encountered adding directory contents from: {}", path);
    }
  } else {
    log_.LogWarn("Optional path is not a regular file, skipping: {}", path);
  }
}

void ReportArchive::AddOptionalFile(zip::ZipWriter& zip, const path& file) {
  const std::string entry_name = FileEntryName(file);
  if (const auto added = AddFile(zip, entry_name, file); !added) {
    log_.LogError("mz_zip_writer_add_file() failed for optional file [{}]. Error: {}", file,
                  added.error());
    return;
  }
  log_.LogInfo("Added optional file [{}]", entry_name);
}

bool ReportArchive::AddDirectoryToZip(zip::ZipWriter& zip, const path& directory,
                                      const std::string& folder_name) {
  log_.LogInfo("Adding directory to zip: [{}] as [{}]", directory, folder_name);
  bool all_added = true;

  auto walk = files_.Walk(directory, platform::WalkDepth::whole_tree);
  auto entry = walk ? (*walk)->Next() : tl::unexpected(walk.error());
  while (entry && *entry) {
    if (!AddDirectoryEntry(zip, directory, **entry, folder_name)) all_added = false;
    entry = (*walk)->Next();
  }
  if (!entry) {
    log_.LogError("Error iterating directory [{}]. Error: {}", directory, entry.error());
    all_added = false;
  }

  if (all_added) {
    log_.LogInfo("Successfully added contents of directory [{}] as [{}]", directory, folder_name);
  } else {
    log_.LogWarn("Finished adding directory [{}] with one or more errors.", directory);
  }
  return all_added;
}

bool ReportArchive::AddDirectoryEntry(zip::ZipWriter& zip, const path& directory, const path& entry,
                                      const std::string& folder_name) try {
  return TryAddDirectoryEntry(zip, directory, entry, folder_name);
} catch (const std::exception& problem) {
  log_.LogError("Exception processing entry [{}] for zip: {}", entry, problem.what());
  return false;
} catch (...) {
  log_.LogError("Unknown exception processing entry [{}] for zip.", entry);
  return false;
}

bool ReportArchive::TryAddDirectoryEntry(zip::ZipWriter& zip, const path& directory,
                                         const path& entry, const std::string& folder_name) {
  const path relative = entry.lexically_relative(directory);
  if (relative.empty()) {
    log_.LogError("Failed to get relative path for [{}] against [{}]. Error: {}", entry, directory,
                  std::make_error_code(std::errc::invalid_argument).message());
    return false;
  }
  const std::string name = EntryNameInFolder(folder_name, relative);
  const auto type = files_.TypeOf(entry);
  if (!type) {
    log_.LogError("Error checking file type for [{}]. Error: {}", entry, type.error());
    return false;
  }
  if (*type == platform::FileType::directory) {
    const auto added = zip.AddFolder(name + "/");
    if (!added) {
      log_.LogError("Failed to add directory entry [{}] to zip. Error: {}", name, added.error());
    }
    return added.has_value();
  }
  // Devices and pipes have nothing to pack.
  if (*type != platform::FileType::regular) return true;
  const auto added = AddFile(zip, name, entry);
  if (!added) {
    log_.LogError("Failed to add file [{}] as [{}] to zip. Error: {}", entry, name, added.error());
  }
  return added.has_value();
}

void ReportArchive::DiscardZip(zip::ZipWriter& zip, const path& zip_path) try {
  if (zip.IsOpen()) (void)zip.End();
  log_.LogError("Zip archive creation failed. Attempting to delete potentially incomplete file: {}",
                zip_path);
  if (const auto removed = files_.Remove(zip_path); !removed) {
    log_.LogWarn("Failed to delete incomplete/failed zip file: {}. Error: {}", zip_path,
                 removed.error());
  }
} catch (const std::exception& problem) {
  log_.LogWarn("Exception during zip file cleanup: {}", problem.what());
}

}  // namespace vosk::report
