// Feeds a file to the zip writer piece by piece.
#pragma once

#include <functional>
#include <istream>
#include <memory>
#include <optional>

#include "zip/zip_writer.h"

namespace vosk::report {

class FileSource : public zip::ZipSource {
 public:
  // Called after each read with the offset that it has come to.
  using OnRead = std::function<void(std::uint64_t end)>;

  FileSource(std::unique_ptr<std::istream> stream, OnRead on_read);

  // Bytes in the file as it was opened; nothing if the stream does not tell.
  [[nodiscard]] std::optional<std::uint64_t> Size() const { return size_; }

  std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t size) noexcept override;

 private:
  std::unique_ptr<std::istream> stream_;
  OnRead on_read_;
  std::optional<std::uint64_t> size_;
};

}  // namespace vosk::report
