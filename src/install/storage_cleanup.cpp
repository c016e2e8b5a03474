#include "install/storage_cleanup.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "files/directory_clearing.h"
#include "files/fixed_path.h"
#include "files/tree_removal.h"
#include "identity.h"
#include "install/work_directory.h"
#include "text/utf.h"

namespace vosk::install {
namespace {

using Path = std::filesystem::path;

constexpr std::chrono::hours kOldDumpAge{24};

double InMegabytes(std::uint64_t bytes) {
  return static_cast<double>(bytes) / (std::uint64_t{1} << 20);
}
double InGigabytes(std::uint64_t bytes) {
  return static_cast<double>(bytes) / (std::uint64_t{1} << 30);
}

enum class Leftover { no, yes, when_old };

// This is loose on purpose: every name with one of VOSK's endings counts. The name is in lower
// case.
Leftover JudgeName(std::string_view name) {
  const auto has = [name](std::string_view part) { return name.find(part) != name.npos; };
  if (has(".failed_upload") || has(".failed_zip")) return Leftover::yes;
  if (has("veldran") && (has(".dmp") || has(".zip"))) return Leftover::when_old;
  return name == "procdump.zip" ? Leftover::yes : Leftover::no;
}

}  // namespace

StorageCleanup::StorageCleanup(platform::Files& files, platform::Clock& clock,
                               console::LogSink& log, process::ProcessControl& processes)
    : files_(files), clock_(clock), log_(log), processes_(processes) {}

std::uint64_t StorageCleanup::CleanUpStorage(const Path& dump_storage_directory,
                                             const Path& temp_directory) {
  log_.LogWarn("Initiating storage cleanup due to insufficient disk space...");
  std::uint64_t freed = RemoveUnsentReports(temp_directory);
  freed += CleanDumpStorage(dump_storage_directory, temp_directory);
  freed += RemoveInstallDirectory(temp_directory);
  freed += ScanTempDirectory(temp_directory);
  processes_.TerminateProcDumpInstances();
  log_.LogInfo("Terminated any orphaned ProcDump instances");
  log_.LogWarn("Storage cleanup completed. Total space freed: {:.2f} MB ({:.2f} GB)",
               InMegabytes(freed), InGigabytes(freed));
  return freed;
}

std::uint64_t StorageCleanup::CleanDumpStorage(const Path& directory, const Path& temp_directory) {
  const std::string failure =
      fmt::format("Failed to fully clear dump storage directory {}", directory);
  log_.LogInfo("Cleaning dump storage directory: {}", directory);
  try {
    // Everything in there is deleted, so a wrong directory must be refused.
    if (files::WithoutTrailingSeparator(directory) != temp_directory / identity::kDumpStorageName) {
      log_.LogError("{}: it does not lie in {}", failure, temp_directory);
      return 0;
    }
    const std::uint64_t size = files::TreeSize(files_, directory);
    if (files::ClearDirectory(files_, clock_, log_, directory)) {
      log_.LogInfo("Cleared dump storage directory. Freed approximately {:.2f} MB",
                   InMegabytes(size));
      return size;
    }
    log_.LogError(failure);
    return size - std::min(size, files::TreeSize(files_, directory));
  } catch (const std::exception& problem) {
    log_.LogError("{}: {}", failure, problem.what());
    return 0;
  }
}

std::uint64_t StorageCleanup::RemoveUnsentReports(const Path& temp_directory) {
  const Path directory = temp_directory / identity::kUnsentReportsName;
  if (!files_.Exists(directory).value_or(false)) return 0;
  return RemoveDirectory(directory, temp_directory,
                         {.cleaning = "Cleaning unsent reports directory: ",
                          .failed = "Failed to remove unsent reports directory: ",
                          .removed = "Removed unsent reports directory. Freed approximately ",
                          .exception = "Exception cleaning unsent reports directory: "});
}

std::uint64_t StorageCleanup::RemoveInstallDirectory(const Path& temp_directory) {
  return RemoveDirectory(temp_directory / kWorkDirectoryName, temp_directory,
                         {.cleaning = "Cleaning installation temp directory: ",
                          .failed = "Failed to remove installation temp directory: ",
                          .removed = "Removed installation temp directory. Freed approximately ",
                          .exception = "Exception cleaning installation temp directory: "});
}

std::uint64_t StorageCleanup::RemoveDirectory(const Path& directory, const Path& temp_directory,
                                              const RemovalTexts& texts) try {
  log_.LogInfo("{}{}", texts.cleaning, directory);
  const std::uint64_t size = files::TreeSize(files_, directory);
  if (const auto removed = files::RemoveTree(files_, directory, temp_directory); !removed) {
    log_.LogError("{}{}, Error: {}", texts.failed, directory, removed.error());
    return size - std::min(size, files::TreeSize(files_, directory));
  }
  log_.LogInfo("{}{:.2f} MB", texts.removed, InMegabytes(size));
  return size;
} catch (const std::exception& problem) {
  log_.LogError("{}{}", texts.exception, problem.what());
  return 0;
}

std::uint64_t StorageCleanup::ScanTempDirectory(const Path& temp_directory) {
  log_.LogInfo("Scanning temp directory for old VOSK files: {}", temp_directory);
  std::uint64_t freed = 0;
  int removed = 0;
  const auto stop = [&](std::string_view reason) {
    log_.LogError("Exception scanning temp directory: {}", reason);
    return freed;
  };
  try {
    if (!files::IsFixedPath(temp_directory)) return stop("its path is not absolute");
    const auto walk = files_.Walk(temp_directory, platform::WalkDepth::direct_entries);
    if (!walk) return stop(walk.error().text);
    while (true) {
      const auto entry = (*walk)->Next();
      if (!entry) return stop(entry.error().text);
      if (!*entry) break;
      const auto size = RemoveIfOld(**entry);
      if (!size) continue;
      freed += *size;
      ++removed;
    }
  } catch (const std::exception& problem) {
    return stop(problem.what());
  }
  log_.LogInfo("Removed {} old VOSK-related files. Freed {:.2f} MB", removed, InMegabytes(freed));
  return freed;
}

platform::Result<bool> StorageCleanup::IsOldFile(const Path& path, std::string_view name) {
  const Leftover judgement = JudgeName(text::ToLowerAscii(name));
  if (judgement == Leftover::no) return false;
  const auto link = files_.IsLink(path);
  if (!link || *link) return link.map([](bool) { return false; });
  const auto type = files_.TypeOf(path);
  if (!type) return tl::unexpected(type.error());
  if (*type != platform::FileType::regular) return false;
  if (judgement == Leftover::yes) return true;
  return files_.LastWriteTime(path).map(
      [this](auto written) { return clock_.WallNow() - written > kOldDumpAge; });
}

std::optional<std::uint64_t> StorageCleanup::RemoveIfOld(const Path& path) {
  const std::string name = text::PathToUtf8(path.filename());
  const auto old = IsOldFile(path, name);
  if (old && !*old) return std::nullopt;
  const std::uint64_t size = files_.SizeOf(path).value_or(0);
  const auto removed = old ? files_.Remove(path) : old;
  if (!removed) {
    log_.LogWarn("Failed to remove old file: {}. Error: {}", name, removed.error());
    return std::nullopt;
  }
  if (!*removed) return std::nullopt;  // somebody else was faster
  log_.LogInfo("Removed old file: {} ({} KB)", name, size / 1024);
  return size;
}

}  // namespace vosk::install
