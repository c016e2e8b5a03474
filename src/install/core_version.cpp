#include "install/core_version.h"

#include <fmt/format.h>

#include <istream>

#include "text/formatters.h"
#include "text/remote_text.h"

namespace vosk::install {
namespace {

// The trimmed line, which another program wrote.
std::string VersionIn(const std::string& line) {
  constexpr std::string_view kBlanks = " \t\n\r";
  const auto first = line.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  return text::RemoteValue(line.substr(first, line.find_last_not_of(kBlanks) - first + 1));
}

}  // namespace

std::string ReadCoreVersionFile(platform::Files& files,
                                const std::filesystem::path& stats_directory) {
  const auto stream = files.OpenForReading(stats_directory / kCoreVersionFile);
  std::string line;
  if (!stream || !std::getline(**stream, line)) return {};
  return VersionIn(line);
}

CoreVersion::CoreVersion(platform::Files& files, console::LogSink& log)
    : files_(files), log_(log) {}

std::string CoreVersion::Read(const std::filesystem::path& log_root_directory, bool quiet) {
  if (log_root_directory.empty()) {
    log_.LogWarn("Cannot read core version: Stats directory path is empty.");
    return {};
  }
  try {
    const auto path = log_root_directory / kCoreVersionFile;
    if (!quiet) {
      log_.LogInfo("Attempting to read current core version from: {}", path);
    }
    std::string version = ReadFirstLine(path, quiet);
    if (!version.empty()) Track(version, quiet);
    return version;
  } catch (const std::exception& problem) {
    log_.LogError("Error constructing path to CoreVersion.txt: {}", problem.what());
    return {};
  }
}

std::string CoreVersion::ReadFirstLine(const std::filesystem::path& path, bool quiet) {
  const auto exists = files_.Exists(path);
  if (!exists) {
    Fail(fmt::format("Error checking existence of {}: {}", path, exists.error().text), quiet);
    return {};
  }
  if (!*exists) {
    Warn(fmt::format("CoreVersion.txt not found at expected location: {}", path), quiet);
    return {};
  }
  const auto stream = files_.OpenForReading(path);
  if (!stream) {
    Fail(fmt::format("Failed to open {} for reading.", path), quiet);
    return {};
  }
  std::string line;
  if (!std::getline(**stream, line)) {
    Warn("Failed to read a line from CoreVersion.txt (file might be empty or read error occurred).",
         quiet);
    return {};
  }
  std::string version = VersionIn(line);
  if (version.empty()) Warn("CoreVersion.txt is empty.", quiet);
  return version;
}

bool CoreVersion::IsNews(const std::string& problem, bool quiet) {
  // The loop reads twice a second: a file that stays unreadable must not fill the log.
  if (quiet && problem == last_problem_) return false;
  last_problem_ = problem;
  return true;
}

void CoreVersion::Warn(const std::string& problem, bool quiet) {
  if (IsNews(problem, quiet)) log_.LogWarn(problem);
}

void CoreVersion::Fail(const std::string& problem, bool quiet) {
  if (IsNews(problem, quiet)) log_.LogError(problem);
}

void CoreVersion::Track(const std::string& version, bool quiet) {
  last_problem_.clear();
  if (version == current_) {
    if (!quiet) {
      log_.LogInfo("Read current core version from file: {} (Unchanged)", version);
    }
    return;
  }
  log_.LogInfo("Detected Core version changed/read: {} (Previous known: {})", version,
               current_.empty() ? "none" : current_);
  current_ = version;
}

}  // namespace vosk::install
