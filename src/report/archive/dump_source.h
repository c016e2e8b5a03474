// Feeds a dump to the zip writer piece by piece and shows the progress.
#pragma once

#include <istream>
#include <memory>
#include <optional>

#include "console/transfer_progress.h"
#include "zip/zip_writer.h"

namespace vosk::report {

class DumpSource : public zip::ZipSource {
 public:
  // The dump's share of the progress display, in percent.
  static constexpr double kFullShare = 95.0;

  DumpSource(std::unique_ptr<std::istream> stream, console::TransferProgress& progress);

  // Returns how many bytes the dump had when it was opened, or nothing if that is unknown.
  [[nodiscard]] std::optional<std::uint64_t> Size() const { return size_; }

  std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t size) noexcept override;

 private:
  std::unique_ptr<std::istream> stream_;
  console::TransferProgress& progress_;
  std::optional<std::uint64_t> size_;
};

}  // namespace vosk::report
