// Makes sure that ProcDump is beside VOSK.exe.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <tl/expected.hpp>

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

  // The same while VOSK is at work: it is not held up by a box.
  [[nodiscard]] bool FetchAnew(const std::filesystem::path& supervisor_directory,
                               const std::filesystem::path& work_directory);

  // Takes one of the executables out of the zip into the directory, which is made if missing. The
  // file is there only when it is whole.
  [[nodiscard]] bool ExtractProcDump(const std::filesystem::path& zip_path,
                                     const std::filesystem::path& destination_directory);

 private:
  struct Member;
  // Done, or what a box says; a failed download wants none.
  using Fetched = tl::expected<void, std::string_view>;

  [[nodiscard]] Fetched Fetch(const std::filesystem::path& supervisor_directory,
                              const std::filesystem::path& work_directory);
  [[nodiscard]] bool PrepareDirectory(const std::filesystem::path& directory);
  [[nodiscard]] std::optional<Member> FindMember(zip::ZipReader& zip,
                                                 const std::filesystem::path& zip_path);
  [[nodiscard]] std::optional<std::string> MemberName(std::u16string_view name);
  [[nodiscard]] zip::ZipReader::Outcome ExtractWhole(zip::ZipReader& zip, std::uint32_t index,
                                                     const std::filesystem::path& destination);
  void CleanUpZip(const std::filesystem::path& zip_path);

  platform::Files& files_;
  platform::System& system_;
  console::LogSink& log_;
  net::Downloader& downloader_;
};

}  // namespace vosk::dumps
