#include "report/archive/file_source.h"

namespace vosk::report {

FileSource::FileSource(std::unique_ptr<std::istream> stream, OnRead on_read)
    : stream_(std::move(stream)), on_read_(std::move(on_read)) {
  stream_->seekg(0, std::ios::end);
  const std::streamoff end = stream_->tellg();
  if (end >= 0) size_ = static_cast<std::uint64_t>(end);
}

std::size_t FileSource::ReadAt(std::uint64_t offset, void* buffer, std::size_t size) noexcept try {
  stream_->clear();
  if (!stream_->seekg(static_cast<std::streamoff>(offset))) return kReadFailed;
  stream_->read(static_cast<char*>(buffer), static_cast<std::streamsize>(size));
  if (stream_->bad()) return kReadFailed;
  const auto count = static_cast<std::size_t>(stream_->gcount());
  on_read_(offset + count);
  return count;
} catch (...) {
  // miniz must not be unwound.
  return kReadFailed;
}

}  // namespace vosk::report
