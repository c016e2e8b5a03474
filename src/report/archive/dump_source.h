// Feeds a dump to the zip writer piece by piece and shows how far it has come.
#pragma once

#include <istream>
#include <memory>
#include <optional>

#include "console/transfer_progress.h"
#include "zip/zip_writer.h"

namespace vosk::report {

class DumpSource : public zip::ZipSource {
 public:
  // Share of the progress display that the dump takes, in percent.
  static constexpr double kFullShare = 95.0;

  DumpSource(std::unique_ptr<std::istream> stream, console::TransferProgress& progress);

  // Bytes in the dump as it was opened; nothing if the stream does not tell.
  [[nodiscard]] std::optional<std::uint64_t> Size() const { return size_; }

  std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t size) noexcept override;

 private:
  std::unique_ptr<std::istream> stream_;
  console::TransferProgress& progress_;
  std::optional<std::uint64_t> size_;
};

}  // namespace vosk::report
