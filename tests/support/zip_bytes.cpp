#include "tests/support/zip_bytes.h"

#include <gtest/gtest.h>
#include <miniz.h>

namespace vosk::support {

std::string ZipBytes(const std::vector<ZipMember>& members) {
  mz_zip_archive zip{};
  mz_zip_writer_init_heap(&zip, 0, 0);
  for (const ZipMember& member : members) {
    EXPECT_TRUE(mz_zip_writer_add_mem(&zip, member.name.c_str(), member.bytes.data(),
                                      member.bytes.size(), MZ_BEST_SPEED));
  }
  void* bytes = nullptr;
  std::size_t size = 0;
  EXPECT_TRUE(mz_zip_writer_finalize_heap_archive(&zip, &bytes, &size));
  std::string result(static_cast<const char*>(bytes), size);
  mz_free(bytes);
  mz_zip_writer_end(&zip);
  return result;
}

}  // namespace vosk::support
