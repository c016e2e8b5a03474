// The installed Core's version, as the Core itself writes it down.
#pragma once

#include <filesystem>
#include <string>

#include "console/log.h"
#include "platform/files.h"

namespace vosk::install {

inline constexpr std::string_view kUnknownVersion = "0.0.0";
// In the Core's stats directory.
inline constexpr std::string_view kCoreVersionFile = "CoreVersion.txt";

// Returns the trimmed first line of "CoreVersion.txt" in the Core's stats directory; empty if the
// file is missing, unreadable or blank.
[[nodiscard]] std::string ReadCoreVersionFile(platform::Files& files,
                                              const std::filesystem::path& stats_directory);

// The internal version tracker: holds what is known of the installed Core's version.
class CoreVersion {
 public:
  CoreVersion(platform::Files& files, console::LogSink& log);

  // Reads the version file again and logs a change. A quiet call does not log the routine lines,
  // nor a problem that the last call had, too. Returns the version, empty if it could not be read;
  // the tracker then keeps the one it has.
  std::string Read(const std::filesystem::path& log_root_directory, bool quiet);

  // Returns kUnknownVersion until a version has been read.
  [[nodiscard]] const std::string& Current() const { return current_; }
  void Set(std::string version) { current_ = std::move(version); }

 private:
  [[nodiscard]] std::string ReadFirstLine(const std::filesystem::path& path, bool quiet);
  // Returns whether the problem is to be logged.
  [[nodiscard]] bool IsNews(const std::string& problem, bool quiet);
  void Warn(const std::string& problem, bool quiet);
  void Fail(const std::string& problem, bool quiet);
  void Track(const std::string& version, bool quiet);

  platform::Files& files_;
  console::LogSink& log_;
  std::string current_{kUnknownVersion};
  std::string last_problem_;  // empty: the last call read a version
};

}  // namespace vosk::install
