// Packs a dump, the files that explain it and the Core's logs into one zip.
#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "platform/files.h"
#include "platform/system.h"

namespace vosk::report {

class ReportArchive {
 public:
  ReportArchive(platform::Files& files, platform::System& system, console::LogSink& log,
                console::TransferProgress& progress);

  // The zip's path beside the dump: stem, computer name and tag ("CRASH", "LIVE_FD"...), joined by
  // underscores.
  [[nodiscard]] std::filesystem::path MakeReportZipPath(const std::filesystem::path& dump_path,
                                                        std::string_view tag);

  // True when a complete zip stands at `zip_path`. The dump must get in; optional files and
  // directories that are missing or unreadable only leave a line in the log. The dump is neither
  // changed nor deleted. A failed run leaves no zip behind.
  [[nodiscard]] bool CreateReportZip(const std::filesystem::path& zip_path,
                                     const std::filesystem::path& dump_path,
                                     const std::vector<std::filesystem::path>& optional_paths);

 private:
  platform::Files& files_;
  platform::System& system_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
};

}  // namespace vosk::report
