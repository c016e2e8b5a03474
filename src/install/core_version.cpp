#include "install/core_version.h"

#include <fmt/format.h>

#include <istream>

#include "text/utf.h"

namespace vosk::install {
namespace {

std::string Trim(const std::string& line) {
  constexpr std::string_view kBlanks = " \t\n\r";
  const auto first = line.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

std::string ReadCoreVersionFile(platform::Files& files,
                                const std::filesystem::path& stats_directory) {
  const auto stream = files.OpenForReading(stats_directory / kCoreVersionFile);
  std::string line;
  if (!stream || !std::getline(**stream, line)) return {};
  return Trim(line);
}

bool HasCoreVersionFile(platform::Files& files, const std::filesystem::path& stats_directory) {
  return files.Exists(stats_directory / kCoreVersionFile).value_or(true);
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
      log_.LogInfo(
          fmt::format("Attempting to read current core version from: {}", text::PathToUtf8(path)));
    }
    const std::string version = ReadFirstLine(path);
    if (!version.empty()) Track(version, quiet);
    return version;
  } catch (const std::exception& problem) {
    log_.LogError(fmt::format("Error constructing path to CoreVersion.txt: {}", problem.what()));
    return {};
  }
}

std::string CoreVersion::ReadFirstLine(const std::filesystem::path& path) {
  const std::string name = text::PathToUtf8(path);
  const auto exists = files_.Exists(path);
  if (!exists) {
    log_.LogError(fmt::format("Error checking existence of {}: {}", name, exists.error().text));
    return {};
  }
  if (!*exists) {
    log_.LogWarn(fmt::format("CoreVersion.txt not found at expected location: {}", name));
    return {};
  }
  const auto stream = files_.OpenForReading(path);
  if (!stream) {
    log_.LogError(fmt::format("Failed to open {} for reading.", name));
    return {};
  }
  std::string line;
  if (!std::getline(**stream, line)) {
    log_.LogWarn(
        "Failed to read a line from CoreVersion.txt (file might be empty or read error occurred).");
    return {};
  }
  std::string version = Trim(line);
  if (version.empty()) log_.LogWarn("CoreVersion.txt is empty.");
  return version;
}

void CoreVersion::Track(const std::string& version, bool quiet) {
  if (version == current_) {
    if (!quiet) {
      log_.LogInfo(fmt::format("Read current core version from file: {} (Unchanged)", version));
    }
    return;
  }
  log_.LogInfo(fmt::format("Detected Core version changed/read: {} (Previous known: {})", version,
                           current_.empty() ? "none" : current_));
  current_ = version;
}

}  // namespace vosk::install
