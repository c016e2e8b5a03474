// Makes sure that ProcDump is beside VOSK.exe.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "console/log.h"
#include "net/downloader.h"
#include "platform/files.h"
#include "platform/system.h"
#include "zip/zip_reader.h"

namespace vosk::dumps {

class ProcDumpAcquisition {
 public:
  ProcDumpAcquisition(platform::Files& files, platform::System& system, console::LogSink& log,
                      net::Downloader& downloader);

  // Returns true if one of ProcDump's executables is in the supervisor directory at the end. A
  // missing one is downloaded as a zip into the work directory; the zip is removed again. A useless
  // package is reported in a message box as well as in the log.
  [[nodiscard]] bool EnsureProcDumpExists(const std::filesystem::path& supervisor_directory,
                                          const std::filesystem::path& work_directory);

  // Extracts one of the executables from the zip into the directory, which is created if missing.
  [[nodiscard]] bool ExtractProcDump(const std::filesystem::path& zip_path,
                                     const std::filesystem::path& destination_directory);

 private:
  struct Member;

  [[nodiscard]] bool PrepareDirectory(const std::filesystem::path& directory);
  [[nodiscard]] std::optional<Member> FindMember(zip::ZipReader& zip,
                                                 const std::filesystem::path& zip_path);
  [[nodiscard]] std::optional<std::string> MemberName(std::u16string_view name);
  void CleanUpZip(const std::filesystem::path& zip_path);

  platform::Files& files_;
  platform::System& system_;
  console::LogSink& log_;
  net::Downloader& downloader_;
};

}  // namespace vosk::dumps
