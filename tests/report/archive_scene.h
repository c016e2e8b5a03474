// One packing of a dump on a simulated host.
#pragma once

#include <gtest/gtest.h>

#include <random>

#include "report/report_archive.h"
#include "tests/report/zip_contents.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"

namespace vosk::report {

using support::MeddlingFiles;

inline const std::filesystem::path kDump = "dumps/core.dmp";
inline const std::filesystem::path kZip = "dumps/core_RIG-7_CRASH.zip";

// Bytes that no packer makes smaller.
inline std::string Noise(std::size_t size) {
  std::mt19937_64 random(size);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

class ArchiveScene : public testing::Test {
 protected:
  bool Pack(const std::vector<std::filesystem::path>& optional_paths = {}) {
    return archive_.CreateReportZip(kZip, kDump, optional_paths);
  }
  void ExpectNothingLeft(const std::string& dump_bytes) {
    EXPECT_FALSE(std::filesystem::exists(kZip));
    EXPECT_EQ(support::SimulatedHost::ReadFile(kDump), dump_bytes);
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }

  // What was logged since the last call.
  support::LogText NewLines() {
    const support::LogText lines = log_.Lines();
    const auto first = lines.begin() + static_cast<std::ptrdiff_t>(seen_lines_);
    seen_lines_ = lines.size();
    return {first, lines.end()};
  }

  support::CheckedHost host_;
  MeddlingFiles files_{host_.files};
  support::LogRecorder log_{host_};
  std::size_t seen_lines_ = 0;
  console::TransferProgress progress_;
  ReportArchive archive_{files_, host_.system, host_.clock, log_.Sink(), progress_};
};

}  // namespace vosk::report
