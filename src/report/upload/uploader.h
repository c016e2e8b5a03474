#pragma once

#include <filesystem>

namespace vosk::report {

class Uploader {
 public:
  virtual ~Uploader() = default;
  // Returns true if the server holds the whole file, which is then deleted here; otherwise the
  // reason is logged and the file stays.
  virtual bool TusUpload(const std::filesystem::path& file_path) = 0;
};

}  // namespace vosk::report
