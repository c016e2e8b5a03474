#include "tests/report/zip_contents.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <miniz.h>

#include <array>
#include <cstdio>

namespace vosk::report {
namespace {

struct ToolRun {
  int status = 0;
  std::string output;
};

ToolRun Run(const std::string& command) {
  ToolRun run;
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  std::array<char, 4096> buffer{};
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    run.output.append(buffer.data(), count);
  }
  run.status = pclose(pipe);
  return run;
}

}  // namespace

std::vector<ZipEntry> ReadZip(const std::filesystem::path& zip) {
  std::vector<ZipEntry> entries;
  mz_zip_archive reader{};
  if (mz_zip_reader_init_file(&reader, zip.c_str(), 0) == 0) {
    ADD_FAILURE() << zip << ": " << mz_zip_get_error_string(reader.m_last_error);
    return entries;
  }
  for (mz_uint index = 0; index < mz_zip_reader_get_num_files(&reader); ++index) {
    mz_zip_archive_file_stat stat{};
    mz_zip_reader_file_stat(&reader, index, &stat);
    std::string bytes(stat.m_uncomp_size, '\0');
    EXPECT_TRUE(mz_zip_reader_extract_to_mem(&reader, index, bytes.data(), bytes.size(), 0))
        << stat.m_filename;
    EXPECT_NE(stat.m_bit_flag & 0x800, 0) << stat.m_filename << " is not marked as UTF-8";
    entries.push_back({stat.m_filename, std::move(bytes)});
  }
  mz_zip_reader_end(&reader);
  return entries;
}

void ExpectReadersAccept(const std::filesystem::path& zip, bool with_large_entries) {
  // Large entries are unpacked once, by the quickest; the others find their way to them.
  const ToolRun unzip =
      Run(fmt::format("unzip {} '{}'", with_large_entries ? "-l" : "-tq", zip.string()));
  EXPECT_EQ(unzip.status, 0) << unzip.output;
  EXPECT_EQ(unzip.output.find("warning"), std::string::npos) << unzip.output;
  const ToolRun seven =
      Run(fmt::format("7z {} -bd '{}'", with_large_entries ? "l" : "t", zip.string()));
  EXPECT_EQ(WEXITSTATUS(seven.status), 0) << seven.output;
  EXPECT_EQ(seven.output.find("ERROR"), std::string::npos) << seven.output;
  const ToolRun python = Run(fmt::format(
      "python3 -c 'import sys, zipfile; sys.exit(zipfile.ZipFile(sys.argv[1]).testzip() is not "
      "None)' '{}'",
      zip.string()));
  EXPECT_EQ(python.status, 0) << python.output;
}

}  // namespace vosk::report
