#include "install/work_directory.h"

#include "files/tree_removal.h"

namespace vosk::install {

WorkDirectory::WorkDirectory(platform::Files& files, const std::filesystem::path& temp_directory)
    : files_(files), path_(temp_directory / kWorkDirectoryName) {}

platform::Result<> WorkDirectory::Remove() const {
  return files::RemoveTree(files_, path_, path_);
}

platform::Result<> WorkDirectory::Create() const {
  return files_.CreateDirectories(path_);
}

}  // namespace vosk::install
