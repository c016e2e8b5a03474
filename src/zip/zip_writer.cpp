#include "zip/zip_writer.h"

#include <miniz.h>

#include <algorithm>

namespace vosk::zip {
namespace {

// Without the flag at opening, miniz ignores it for the entries.
constexpr mz_uint kLevelAndFlags = mz_uint{MZ_BEST_COMPRESSION} | mz_uint{MZ_ZIP_FLAG_WRITE_ZIP64};

}  // namespace

// Counts what miniz takes from a source.
struct ZipWriter::CountedSource {
  ZipSource& source;
  std::uint64_t size;
  bool cut;  // whether the source ends for miniz after `size` bytes, even if it goes on
  std::uint64_t end = 0;

  // A count beyond the buffer makes miniz give up the entry.
  static std::size_t Read(void* opaque, mz_uint64 offset, void* buffer, std::size_t size) {
    auto& self = *static_cast<CountedSource*>(opaque);
    if (self.cut) size = std::min<std::uint64_t>(size, self.size - offset);
    if (size == 0) return 0;
    const std::size_t count = self.source.ReadAt(offset, buffer, size);
    if (count != ZipSource::kReadFailed) self.end = std::max(self.end, offset + count);
    return count;
  }
};

struct ZipWriter::Archive {
  mz_zip_archive zip{};
  mz_file_write_func write_to_file = nullptr;
  std::uint64_t written_end = 0;
  bool write_failed = false;

  static std::size_t Write(void* opaque, mz_uint64 offset, const void* data, std::size_t size) {
    auto& self = *static_cast<Archive*>(opaque);
    const std::size_t count = self.write_to_file(&self.zip, offset, data, size);
    self.written_end = std::max<std::uint64_t>(self.written_end, offset + count);
    if (count != size) self.write_failed = true;
    return count;
  }
};

ZipWriter::ZipWriter() : archive_(std::make_unique<Archive>()) {}

ZipWriter::~ZipWriter() {
  if (open_) mz_zip_writer_end(&archive_->zip);
}

ZipWriter::Outcome ZipWriter::Failed(int miniz_error) const {
  return tl::unexpected<std::string>(
      mz_zip_get_error_string(static_cast<mz_zip_error>(miniz_error)));
}

ZipWriter::Outcome ZipWriter::Judge(int miniz_result) const {
  if (miniz_result != 0) return {};
  return Failed(mz_zip_get_last_error(&archive_->zip));
}

ZipWriter::Outcome ZipWriter::Open(const std::string& path) {
  mz_zip_archive& zip = archive_->zip;
  open_ = mz_zip_writer_init_file_v2(&zip, path.c_str(), 0, MZ_ZIP_FLAG_WRITE_ZIP64) != 0;
  if (!open_) return Judge(0);
  archive_->write_to_file = zip.m_pWrite;
  zip.m_pWrite = Archive::Write;
  zip.m_pIO_opaque = archive_.get();
  return {};
}

ZipWriter::Outcome ZipWriter::Add(const std::string& entry_name, CountedSource& counted,
                                  std::time_t modified) {
  return Judge(mz_zip_writer_add_read_buf_callback(
      &archive_->zip, entry_name.c_str(), CountedSource::Read, &counted, counted.size, &modified,
      nullptr, 0, kLevelAndFlags, nullptr, 0, nullptr, 0));
}

ZipWriter::Outcome ZipWriter::AddWhole(const std::string& entry_name, ZipSource& source,
                                       std::uint64_t size, std::time_t modified) {
  CountedSource counted{.source = source, .size = size, .cut = false};
  Outcome added = Add(entry_name, counted, modified);
  if (!added) return added;
  // miniz takes a source that ends early for complete, and does not look at an empty one at all.
  char beyond = 0;
  if (counted.end != size || source.ReadAt(size, &beyond, 1) != 0) {
    return Failed(MZ_ZIP_FILE_READ_FAILED);
  }
  return {};
}

ZipWriter::Outcome ZipWriter::AddUpTo(const std::string& entry_name, ZipSource& source,
                                      std::uint64_t size, std::time_t modified) {
  CountedSource counted{.source = source, .size = size, .cut = true};
  return Add(entry_name, counted, modified);
}

ZipWriter::Outcome ZipWriter::AddFolder(const std::string& entry_name) {
  return Judge(
      mz_zip_writer_add_mem(&archive_->zip, entry_name.c_str(), nullptr, 0, kLevelAndFlags));
}

ZipWriter::Outcome ZipWriter::Finalize() {
  // The C library buffers: a write that failed for one entry may have lost the end of the entry
  // before it, even if there is room again by now.
  if (archive_->write_failed) return Failed(MZ_ZIP_FILE_WRITE_FAILED);
  // An entry that failed half-way, say a log on a bad sector, leaves its bytes behind the last good
  // one. The central directory must come after them: readers look for it at the file's end.
  mz_zip_archive& zip = archive_->zip;
  zip.m_archive_size = std::max<mz_uint64>(zip.m_archive_size, archive_->written_end);
  return Judge(mz_zip_writer_finalize_archive(&zip));
}

ZipWriter::Outcome ZipWriter::End() {
  open_ = false;
  return Judge(mz_zip_writer_end(&archive_->zip));
}

}  // namespace vosk::zip
