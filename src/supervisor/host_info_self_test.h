// Proves at start-up that a host information report can be written, before a crash needs one.
#pragma once

#include <filesystem>
#include <functional>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace vosk::supervisor {

class HostInfoSelfTest {
 public:
  // Writes a report to a path; returns false if that failed.
  using GenerateReport = std::function<bool(const std::filesystem::path&)>;

  HostInfoSelfTest(platform::Clock& clock, platform::Files& files, console::LogSink& log,
                   GenerateReport generate_report);

  // Writes a report into the directory, logs the outcome and removes it again. Start-up goes on in
  // any case.
  void Run(const std::filesystem::path& dump_storage_directory);

 private:
  void Try(const std::filesystem::path& test_file);
  void Inspect(const std::filesystem::path& test_file);
  void ShowPreview(const std::filesystem::path& test_file);
  void CleanUpPartialFile(const std::filesystem::path& test_file);

  platform::Clock& clock_;
  platform::Files& files_;
  console::LogSink& log_;
  GenerateReport generate_report_;
};

}  // namespace vosk::supervisor
