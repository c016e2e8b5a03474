#pragma once

#include <filesystem>
#include <functional>

namespace vosk::report {

class Uploader {
 public:
  using Interrupt = std::function<bool()>;  // none: never

  virtual ~Uploader() = default;
  // Returns true if the server holds the whole file, which is then deleted here; otherwise the
  // reason is logged and the file stays.
  // The interrupt is asked now and then, at least once a second; once it returns true, the upload
  // is broken off.
  virtual bool TusUpload(const std::filesystem::path& file_path, const Interrupt& interrupt) = 0;
  bool TusUpload(const std::filesystem::path& file_path) { return TusUpload(file_path, {}); }
};

}  // namespace vosk::report
