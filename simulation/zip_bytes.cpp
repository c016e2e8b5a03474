#include "simulation/zip_bytes.h"

#include <miniz.h>

#include <stdexcept>

namespace vosk::simulation {

std::string ZipBytes(const std::vector<ZipMember>& members) {
  const auto must = [](mz_bool done) {
    if (!done) throw std::runtime_error("a zip could not be made");
  };
  mz_zip_archive zip{};
  must(mz_zip_writer_init_heap(&zip, 0, 0));
  for (const ZipMember& member : members) {
    must(mz_zip_writer_add_mem(&zip, member.name.c_str(), member.bytes.data(), member.bytes.size(),
                               MZ_BEST_SPEED));
  }
  void* bytes = nullptr;
  std::size_t size = 0;
  must(mz_zip_writer_finalize_heap_archive(&zip, &bytes, &size));
  std::string result(static_cast<const char*>(bytes), size);
  mz_free(bytes);
  mz_zip_writer_end(&zip);
  return result;
}

}  // namespace vosk::simulation
