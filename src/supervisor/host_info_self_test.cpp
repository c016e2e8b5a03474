#include "supervisor/host_info_self_test.h"

#include <fmt/format.h>

#include <string>

#include "text/utf.h"

namespace vosk::supervisor {
namespace {

constexpr int kPreviewLines = 5;

}  // namespace

HostInfoSelfTest::HostInfoSelfTest(platform::Clock& clock, platform::Files& files,
                                   console::LogSink& log, GenerateReport generate_report)
    : clock_(clock), files_(files), log_(log), generate_report_(std::move(generate_report)) {}

void HostInfoSelfTest::Run(const std::filesystem::path& dump_storage_directory) {
  log_.LogInfo("--- Testing Host Info Report Generation ---");
  try {
    Try(dump_storage_directory / "VOSK_HostInfo_Test.txt");
  } catch (const std::exception& problem) {
    log_.LogError("? Exception during host info test: {}", problem.what());
  } catch (...) {
    log_.LogError("? Unknown exception during host info test");
  }
  log_.LogInfo("--- Host Info Report Generation Test Complete ---");
}

void HostInfoSelfTest::Try(const std::filesystem::path& test_file) {
  log_.LogInfo("Test host info file path: {}", test_file);
  const auto started = clock_.SteadyNow();
  if (!generate_report_(test_file)) {
    log_.LogError("? Host info generation test FAILED");
    log_.LogError("This may indicate issues with gathering system information");
    log_.LogWarn("Crash reports may have incomplete host information");
    CleanUpPartialFile(test_file);
    return;
  }
  const auto duration =
      std::chrono::duration_cast<std::chrono::milliseconds>(clock_.SteadyNow() - started);
  log_.LogInfo("? Host info generation test SUCCESSFUL. Duration: {}ms", duration.count());
  Inspect(test_file);
}

void HostInfoSelfTest::Inspect(const std::filesystem::path& test_file) {
  if (!files_.Exists(test_file).value_or(false)) {
    log_.LogError("? Test file was not created or cannot be accessed");
    return;
  }
  const auto size = files_.SizeOf(test_file).value_or(0);
  if (size == 0) {
    log_.LogError("? Test file exists but is empty or error reading size");
  } else {
    log_.LogInfo("? Test file created successfully. Size: {} bytes", size);
    ShowPreview(test_file);
  }
  const auto removed = files_.Remove(test_file);
  if (removed) {
    log_.LogInfo("? Test file cleaned up successfully");
  } else {
    log_.LogWarn("Could not delete test file: {}", removed.error());
  }
}

void HostInfoSelfTest::ShowPreview(const std::filesystem::path& test_file) {
  log_.LogInfo("Test file preview:");
  const auto file = files_.OpenForReading(test_file);
  if (!file) {
    log_.LogWarn("Could not read test file: {}", file.error());
    return;
  }
  std::string line;
  for (int i = 0; i < kPreviewLines && std::getline(**file, line); ++i) {
    if (line.ends_with('\r')) line.pop_back();
    log_.LogInfo("  {}", line);
  }
}

void HostInfoSelfTest::CleanUpPartialFile(const std::filesystem::path& test_file) {
  if (!files_.Exists(test_file).value_or(false)) return;
  log_.LogWarn("Partial test file exists, attempting cleanup");
  if (const auto removed = files_.Remove(test_file); !removed) {
    log_.LogWarn("Could not delete test file: {}", removed.error());
  }
}

}  // namespace vosk::supervisor
