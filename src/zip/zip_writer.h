// Owns a zip archive while it is written. Entry names and paths are UTF-8, entries are compressed
// as far as possible and sizes may exceed 4 GiB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <tl/expected.hpp>

namespace vosk::zip {

// Where the bytes of a large entry come from.
class ZipSource {
 public:
  static constexpr std::size_t kReadFailed = SIZE_MAX;

  virtual ~ZipSource() = default;
  // Fills the buffer from `offset` on and returns how many bytes it got: fewer at the end, 0 behind
  // it.
  virtual std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t size) noexcept = 0;
};

class ZipWriter {
 public:
  // Done, or miniz's text for what went wrong.
  using Outcome = tl::expected<void, std::string>;

  ZipWriter();
  // Closes the archive's file if that has not happened; what it holds is then incomplete.
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  // Creates the file or empties it.
  [[nodiscard]] Outcome Open(const std::string& path);
  // After a failure to add something the archive goes on as if nothing had been added.
  // Adds exactly `size` bytes: a source that ends sooner or goes on is a failure.
  [[nodiscard]] Outcome AddWhole(const std::string& entry_name, ZipSource& source,
                                 std::uint64_t size, std::time_t modified);
  // Adds the first `size` bytes, or fewer if the source ends sooner: it may change meanwhile.
  [[nodiscard]] Outcome AddUpTo(const std::string& entry_name, ZipSource& source,
                                std::uint64_t size, std::time_t modified);
  [[nodiscard]] Outcome AddFolder(const std::string& entry_name);
  // Writes the central directory; nothing can be added afterwards.
  [[nodiscard]] Outcome Finalize();
  // Closes the file, finalized or not.
  [[nodiscard]] Outcome End();
  [[nodiscard]] bool IsOpen() const { return open_; }

 private:
  struct Archive;
  struct CountedSource;

  [[nodiscard]] Outcome Add(const std::string& entry_name, CountedSource& counted,
                            std::time_t modified);
  [[nodiscard]] Outcome Judge(int miniz_result) const;
  [[nodiscard]] Outcome Failed(int miniz_error) const;

  std::unique_ptr<Archive> archive_;
  bool open_ = false;
};

}  // namespace vosk::zip
