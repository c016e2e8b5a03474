#include "report/archive/dump_source.h"

#include <algorithm>

namespace vosk::report {

DumpSource::DumpSource(std::unique_ptr<std::istream> stream, console::TransferProgress& progress)
    : stream_(std::move(stream)), progress_(progress) {
  stream_->seekg(0, std::ios::end);
  const std::streamoff end = stream_->tellg();
  if (end >= 0) size_ = static_cast<std::uint64_t>(end);
}

std::size_t DumpSource::ReadAt(std::uint64_t offset, void* buffer, std::size_t size) noexcept {
  stream_->clear();
  if (!stream_->seekg(static_cast<std::streamoff>(offset))) return 0;
  stream_->read(static_cast<char*>(buffer), static_cast<std::streamsize>(size));
  const auto count = static_cast<std::size_t>(stream_->gcount());
  const std::uint64_t total = size_.value_or(0);
  if (total > 0) {
    const double share = static_cast<double>(offset + count) / static_cast<double>(total);
    progress_.Set(std::min(share * kFullShare, kFullShare));
  }
  return count;
}

}  // namespace vosk::report
