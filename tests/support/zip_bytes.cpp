#include "tests/support/zip_bytes.h"

#include <gtest/gtest.h>
#include <miniz.h>

namespace vosk::support {

std::string ZipBytes(const std::vector<std::pair<std::string, std::string>>& members) {
  mz_zip_archive zip{};
  EXPECT_TRUE(mz_zip_writer_init_heap(&zip, 0, 0));
  for (const auto& [name, bytes] : members) {
    EXPECT_TRUE(mz_zip_writer_add_mem(&zip, name.c_str(), bytes.data(), bytes.size(),
                                      MZ_DEFAULT_COMPRESSION));
  }
  void* archive = nullptr;
  std::size_t size = 0;
  EXPECT_TRUE(mz_zip_writer_finalize_heap_archive(&zip, &archive, &size));
  std::string bytes(static_cast<const char*>(archive), size);
  mz_free(archive);
  mz_zip_writer_end(&zip);
  return bytes;
}

}  // namespace vosk::support
