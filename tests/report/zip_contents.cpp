#include "tests/report/zip_contents.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <miniz.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace vosk::report {

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
  // Large entries are unpacked once, by the fastest program; the others only have to find them.
  const std::string command = fmt::format(
      "(unzip {} '{}' && 7z {} -bd '{}' && python3 -c 'import sys, zipfile; "
      "sys.exit(zipfile.ZipFile(sys.argv[1]).testzip() is not None)' '{}') >readers.txt 2>&1",
      with_large_entries ? "-l" : "-tq", zip.string(), with_large_entries ? "l" : "t", zip.string(),
      zip.string());
  const int status = std::system(command.c_str());
  std::ostringstream told;
  told << std::ifstream("readers.txt").rdbuf();
  EXPECT_EQ(status, 0) << told.str();
  EXPECT_EQ(told.str().find("warning"), std::string::npos) << told.str();
  EXPECT_EQ(told.str().find("ERROR"), std::string::npos) << told.str();
}

}  // namespace vosk::report
