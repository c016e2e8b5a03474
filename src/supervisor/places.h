#pragma once

#include <filesystem>

namespace vosk::supervisor {

// The places fixed at start-up.
struct Places {
  std::filesystem::path supervisor_directory;
  std::filesystem::path dump_storage_directory;
  std::filesystem::path target_path;
  std::filesystem::path target_directory;
  std::filesystem::path log_root_directory;  // empty: the Core's logs cannot be had

  void UseTarget(const std::filesystem::path& executable) {
    target_path = executable;
    target_directory = executable.parent_path();
  }
  [[nodiscard]] std::filesystem::path TempDirectory() const {
    return dump_storage_directory.parent_path();
  }
};

}  // namespace vosk::supervisor
