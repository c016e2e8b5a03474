// Packs a dump, the files that explain it and the Core's logs into one zip.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "console/bar_pulse.h"
#include "console/log.h"
#include "console/transfer_progress.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/system.h"
#include "zip/zip_writer.h"

namespace vosk::report {

class ReportArchive {
 public:
  // All references outlive the archive. The clock dates the dump's entry.
  ReportArchive(platform::Files& files, platform::System& system, platform::Clock& clock,
                console::LogSink& log, console::TransferProgress& progress);

  // Returns the zip's path beside the dump: stem, computer name ("UNKNOWN" if it cannot be read)
  // and tag ("CRASH", "LIVE_FD"...), joined by underscores.
  [[nodiscard]] std::filesystem::path MakeReportZipPath(const std::filesystem::path& dump_path,
                                                        std::string_view tag);

  // Returns true if a complete zip is at `zip_path`. Without the dump it fails; missing or
  // unreadable optional files and directories are only logged. The dump is neither changed nor
  // deleted. A failed run leaves no zip behind.
  [[nodiscard]] bool CreateReportZip(const std::filesystem::path& zip_path,
                                     const std::filesystem::path& dump_path,
                                     const std::vector<std::filesystem::path>& optional_paths);

  // Returns true if every entry of the directory was added below `folder_name`.
  [[nodiscard]] bool AddDirectoryToZip(zip::ZipWriter& zip, const std::filesystem::path& directory,
                                       const std::string& folder_name);

 private:
  [[nodiscard]] bool PrepareTarget(const std::filesystem::path& zip_path);
  void MakeRoomForZip(const std::filesystem::path& zip_path);
  [[nodiscard]] bool OpenZip(zip::ZipWriter& zip, const std::filesystem::path& zip_path);
  [[nodiscard]] bool FillZip(zip::ZipWriter& zip, const std::filesystem::path& zip_path,
                             const std::filesystem::path& dump_path,
                             const std::vector<std::filesystem::path>& optional_paths);
  [[nodiscard]] bool AddDump(zip::ZipWriter& zip, const std::filesystem::path& dump_path);
  // Adds what a file holds just now; it may go on to grow.
  [[nodiscard]] zip::ZipWriter::Outcome AddFile(zip::ZipWriter& zip, const std::string& entry_name,
                                                const std::filesystem::path& file);
  void AddOptionalPath(zip::ZipWriter& zip, const std::filesystem::path& path);
  void AddOptionalFile(zip::ZipWriter& zip, const std::filesystem::path& file);
  [[nodiscard]] bool AddDirectoryEntry(zip::ZipWriter& zip, const std::filesystem::path& directory,
                                       const std::filesystem::path& entry,
                                       const std::string& folder_name);
  [[nodiscard]] bool TryAddDirectoryEntry(zip::ZipWriter& zip,
                                          const std::filesystem::path& directory,
                                          const std::filesystem::path& entry,
                                          const std::string& folder_name);
  void DiscardZip(zip::ZipWriter& zip, const std::filesystem::path& zip_path);

  platform::Files& files_;
  platform::System& system_;
  platform::Clock& clock_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
  console::BarPulse pulse_{clock_, log_};
};

}  // namespace vosk::report
