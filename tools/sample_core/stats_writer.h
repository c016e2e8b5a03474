// Writes the sample Core's stats directory: its version and logs that keep growing.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>

namespace vosk::tools {

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<FILE, FileCloser>;

class StatsWriter {
 public:
  // Creates VELDRAN\stats\TestNet in the roaming application data with "CoreVersion.txt" and opens
  // the logs for appending. Throws std::runtime_error or std::filesystem::filesystem_error.
  explicit StatsWriter(unsigned long pid);

  const std::filesystem::path& directory() const { return directory_; }
  // Appends one line with the local time to the Core's own log.
  void Note(const char* text);
  // Lets both logs grow by one second's worth.
  void Tick();

 private:
  unsigned long pid_;
  std::filesystem::path directory_;
  OpenFile core_log_;
  OpenFile node_log_;  // in a sub-folder, so that a report has to hold folders
  unsigned long block_ = 0;
};

}  // namespace vosk::tools
