#include "dumps/procdump_acquisition.h"

#include <fmt/format.h>

#include <string>

#include "dumps/procdump_search.h"
#include "identity.h"
#include "text/utf.h"

namespace vosk::dumps {
namespace {

std::string Utf8(const std::filesystem::path& path) {
  return text::TryPathToUtf8(path).value_or("<conv_err>");
}

}  // namespace

struct ProcDumpAcquisition::Member {
  std::string name;
  std::uint32_t index = 0;
};

ProcDumpAcquisition::ProcDumpAcquisition(platform::Files& files, platform::System& system,
                                         console::LogSink& log, net::Downloader& downloader)
    : files_(files), system_(system), log_(log), downloader_(downloader) {}

bool ProcDumpAcquisition::EnsureProcDumpExists(const std::filesystem::path& supervisor_directory,
                                               const std::filesystem::path& work_directory) {
  if (const auto present = FindProcDump(files_, supervisor_directory)) {
    log_.LogInfo("ProcDump executable found in application directory: {}", Utf8(present->path));
    return true;
  }
  const Fetched fetched = Fetch(supervisor_directory, work_directory);
  if (!fetched && !fetched.error().empty()) {
    system_.ShowErrorBox("Error", std::string(fetched.error()));
  }
  return fetched.has_value();
}

bool ProcDumpAcquisition::FetchAnew(const std::filesystem::path& supervisor_directory,
                                    const std::filesystem::path& work_directory) {
  return FindProcDump(files_, supervisor_directory) ||
         Fetch(supervisor_directory, work_directory).has_value();
}

ProcDumpAcquisition::Fetched ProcDumpAcquisition::Fetch(
    const std::filesystem::path& supervisor_directory,
    const std::filesystem::path& work_directory) {
  const std::string directory = Utf8(supervisor_directory);
  log_.LogWarn(
      "ProcDump not found in application directory ({}). Attempting download and extraction...",
      directory);

  const auto zip_path = work_directory / "Procdump.zip";
  const std::string url(identity::kProcDumpUrl);
  if (!downloader_.DownloadFile(url, zip_path)) {
    log_.LogError("EnsureProcDumpExists: Failed to download ProcDump zip from {}", url);
    return tl::unexpected<std::string_view>("");
  }
  const bool extracted = ExtractProcDump(zip_path, supervisor_directory);
  CleanUpZip(zip_path);
  if (!extracted) {
    log_.LogError("EnsureProcDumpExists: Failed to extract ProcDump from downloaded zip: {}",
                  Utf8(zip_path));
    return tl::unexpected<std::string_view>(
        "Failed to extract ProcDump after download. Crash monitoring cannot start.");
  }

  if (!FindProcDump(files_, supervisor_directory)) {
    log_.LogError(
        "EnsureProcDumpExists: ProcDump extraction reported success, but "
        "executable still not found in {}",
        directory);
    return tl::unexpected<std::string_view>(
        "ProcDump extraction failed verification (file not found after extraction). Crash "
        "monitoring cannot start.");
  }
  log_.LogInfo("ProcDump successfully downloaded and extracted to: {}", directory);
  return {};
}

void ProcDumpAcquisition::CleanUpZip(const std::filesystem::path& zip_path) {
  const std::string path = Utf8(zip_path);
  try {
    const auto exists = files_.Exists(zip_path);
    if (!exists) {
      log_.LogWarn("Error checking existence of zip file for cleanup: {}. Error: {}", path,
                   exists.error());
      return;
    }
    if (!*exists) return;
    if (const auto removed = files_.Remove(zip_path); !removed) {
      log_.LogWarn("Failed to clean up downloaded zip file: {}. Error: {}", path, removed.error());
      return;
    }
    log_.LogInfo("Cleaned up downloaded ProcDump zip file: {}", path);
  } catch (const std::exception& problem) {
    log_.LogWarn("Exception during zip file cleanup: {}", problem.what());
  }
}

bool ProcDumpAcquisition::ExtractProcDump(const std::filesystem::path& zip_path,
                                          const std::filesystem::path& destination_directory) {
  log_.LogInfo("Attempting to extract ProcDump from: {} into: {}", Utf8(zip_path),
               Utf8(destination_directory));
  if (!PrepareDirectory(destination_directory)) return false;
  zip::ZipReader zip(files_);
  if (const auto opened = zip.Open(zip_path); !opened) {
    log_.LogError("ExtractProcDump: Failed to initialize zip reader for [{}]. Error: {}",
                  Utf8(zip_path), opened.error());
    return false;
  }
  const auto member = FindMember(zip, zip_path);
  if (!member) return false;

  const auto destination = destination_directory / member->name;
  log_.LogInfo("Extracting file to: {}", Utf8(destination));
  if (const auto extracted = ExtractWhole(zip, member->index, destination); !extracted) {
    log_.LogError("ExtractProcDump: Failed to extract [{}] to [{}]. Error: {}", member->name,
                  Utf8(destination), extracted.error());
    return false;
  }
  log_.LogInfo("ExtractProcDump: Successfully extracted [{}] to [{}]", member->name,
               Utf8(destination));
  return true;
}

// Under its own name the file appears only once it is whole and on the disk: whatever ends VOSK in
// between, a torn ProcDump would be taken for good at every later start.
zip::ZipReader::Outcome ProcDumpAcquisition::ExtractWhole(
    zip::ZipReader& zip, std::uint32_t index, const std::filesystem::path& destination) {
  std::filesystem::path unfinished = destination;
  unfinished += ".new";
  if (auto extracted = zip.ExtractToFile(index, unfinished); !extracted) return extracted;
  if (const auto flushed = files_.Flush(unfinished); !flushed) {
    log_.LogWarn("ExtractProcDump: Failed to flush [{}] to the disk. Error: {}", Utf8(unfinished),
                 flushed.error());
  }
  const auto replaced = files_.Replace(unfinished, destination);
  if (replaced) return {};
  static_cast<void>(files_.Remove(unfinished));
  return tl::unexpected(fmt::format("{}", replaced.error()));
}

bool ProcDumpAcquisition::PrepareDirectory(const std::filesystem::path& directory) {
  const std::string path = Utf8(directory);
  try {
    if (files_.Exists(directory).value_or(false)) return true;
    if (const auto created = files_.CreateDirectories(directory); !created) {
      log_.LogError("ExtractProcDump: Failed to create extraction directory [{}]. Error: {}", path,
                    created.error());
      return false;
    }
    log_.LogInfo("Created extraction directory: {}", path);
    return true;
  } catch (const std::exception& problem) {
    log_.LogError("ExtractProcDump: Exception creating extraction directory [{}]: {}", path,
                  problem.what());
    return false;
  }
}

std::optional<ProcDumpAcquisition::Member> ProcDumpAcquisition::FindMember(
    zip::ZipReader& zip, const std::filesystem::path& zip_path) {
  const auto primary = MemberName(kPrimaryExecutable);
  if (!primary) return std::nullopt;
  if (const auto index = zip.Locate(*primary)) {
    log_.LogInfo("ExtractProcDump: Found '{}' in zip archive.", *primary);
    return Member{*primary, *index};
  }
  const auto fallback = MemberName(kFallbackExecutable);
  if (!fallback) return std::nullopt;
  log_.LogWarn("ExtractProcDump: Did not find '{}'. Trying fallback '{}'...", *primary, *fallback);
  if (const auto index = zip.Locate(*fallback)) {
    log_.LogInfo("ExtractProcDump: Found fallback '{}' in zip archive.", *fallback);
    return Member{*fallback, *index};
  }
  log_.LogError("ExtractProcDump: Could not find '{}' or '{}' in the zip archive: {}", *primary,
                *fallback, Utf8(zip_path));
  return std::nullopt;
}

std::optional<std::string> ProcDumpAcquisition::MemberName(std::u16string_view name) {
  const auto member_name = text::Utf16ToUtf8(name);
  if (member_name) return *member_name;
  log_.LogError("ExtractProcDump: Failed to convert wide char name '{}' to multibyte.",
                text::WideToUtf8(name));
  return std::nullopt;
}

}  // namespace vosk::dumps
