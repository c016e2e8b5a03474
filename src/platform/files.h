#pragma once

#include <chrono>
#include <filesystem>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>

#include "platform/types.h"

namespace vosk::platform {

enum class FileType { regular, directory, other };
enum class WalkDepth { direct_entries, whole_tree };

// Walks the entries of a directory one by one, in the system's order; links are not followed. In a
// whole tree, a directory comes before its entries.
class DirectoryWalk {
 public:
  virtual ~DirectoryWalk() = default;
  // Returns the next entry, or nothing at the end. After an error the walk is over.
  virtual Result<std::optional<std::filesystem::path>> Next() = 0;
};

class Files {
 public:
  virtual ~Files() = default;
  // Returns false, not an error, if the file or folder is missing.
  virtual Result<bool> Exists(const std::filesystem::path& path) = 0;
  virtual Result<FileType> TypeOf(const std::filesystem::path& path) = 0;
  virtual Result<std::uint64_t> SizeOf(const std::filesystem::path& path) = 0;
  // Returns whether the entry itself is a link (symbolic link, junction), whatever it leads to.
  virtual Result<bool> IsLink(const std::filesystem::path& path) = 0;
  virtual Result<std::chrono::system_clock::time_point> LastWriteTime(
      const std::filesystem::path& path) = 0;
  // Removes one file, link or empty directory, even a read-only one; returns false if there was
  // nothing to remove.
  virtual Result<bool> Remove(const std::filesystem::path& path) = 0;
  // Replaces nothing: a file at the new name is an error.
  virtual Result<> Rename(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // Like Rename, but replaces a file at the new name.
  virtual Result<> Replace(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // Returns when all that was written to the file is on the disk and outlives a power cut.
  virtual Result<> Flush(const std::filesystem::path& path) = 0;
  // Whether the file may be renamed as things stand: Rename's own answer. Touches nothing.
  virtual Result<> CheckRename(const std::filesystem::path& path) = 0;
  // Asks the system to rename the file when it starts the next time, before any program runs. As
  // Rename it replaces nothing: with a file at the new name by then, nothing happens.
  virtual Result<> RenameAtNextBoot(const std::filesystem::path& from,
                                    const std::filesystem::path& to) = 0;
  // Replaces nothing either.
  virtual Result<> Copy(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // With missing parents; an existing directory is a success.
  virtual Result<> CreateDirectories(const std::filesystem::path& path) = 0;
  virtual Result<std::unique_ptr<DirectoryWalk>> Walk(const std::filesystem::path& directory,
                                                      WalkDepth depth) = 0;
  // Returns how many bytes the caller may still write to the volume with this root.
  virtual Result<std::uint64_t> FreeSpace(const std::filesystem::path& root) = 0;
  // Also fails if the path exceeds kMaxPath.
  virtual Result<std::filesystem::path> CurrentDirectory() = 0;
  // Opens a binary stream at the file's start; others may read, write and delete the file
  // meanwhile.
  virtual Result<std::unique_ptr<std::istream>> OpenForReading(
      const std::filesystem::path& path) = 0;
  // Opens a text stream at the end of the file, which is created if missing; the error is the C
  // library's errno.
  virtual Result<std::unique_ptr<std::ostream>> OpenForAppending(
      const std::filesystem::path& path) = 0;
  // Creates or empties the file and opens a binary stream on it; the error is the C library's
  // errno.
  virtual Result<std::unique_ptr<std::ostream>> OpenForWriting(
      const std::filesystem::path& path) = 0;
  // The same for text.
  virtual Result<std::unique_ptr<std::ostream>> OpenTextForWriting(
      const std::filesystem::path& path) = 0;
};

}  // namespace vosk::platform
