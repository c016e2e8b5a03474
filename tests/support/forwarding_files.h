#pragma once

#include "platform/files.h"

namespace vosk::support {

// Passes every operation on, so that a test overrides only those it meddles with.
class ForwardingFiles : public platform::Files {
 public:
  using Path = std::filesystem::path;

  explicit ForwardingFiles(platform::Files& files) : files_(files) {}

  platform::Result<bool> Exists(const Path& path) override { return files_.Exists(path); }
  platform::Result<platform::FileType> TypeOf(const Path& path) override {
    return files_.TypeOf(path);
  }
  platform::Result<std::uint64_t> SizeOf(const Path& path) override { return files_.SizeOf(path); }
  platform::Result<bool> IsLink(const Path& path) override { return files_.IsLink(path); }
  platform::Result<std::chrono::system_clock::time_point> LastWriteTime(const Path& path) override {
    return files_.LastWriteTime(path);
  }
  platform::Result<bool> Remove(const Path& path) override { return files_.Remove(path); }
  platform::Result<> Rename(const Path& from, const Path& to) override {
    return files_.Rename(from, to);
  }
  platform::Result<> Replace(const Path& from, const Path& to) override {
    return files_.Replace(from, to);
  }
  platform::Result<> Flush(const Path& path) override { return files_.Flush(path); }
  platform::Result<> CheckRename(const Path& path) override { return files_.CheckRename(path); }
  platform::Result<> RenameAtNextBoot(const Path& from, const Path& to) override {
    return files_.RenameAtNextBoot(from, to);
  }
  platform::Result<> Copy(const Path& from, const Path& to) override {
    return files_.Copy(from, to);
  }
  platform::Result<> CreateDirectories(const Path& path) override {
    return files_.CreateDirectories(path);
  }
  platform::Result<std::unique_ptr<platform::DirectoryWalk>> Walk(
      const Path& directory, platform::WalkDepth depth) override {
    return files_.Walk(directory, depth);
  }
  platform::Result<std::uint64_t> FreeSpace(const Path& root) override {
    return files_.FreeSpace(root);
  }
  platform::Result<Path> CurrentDirectory() override { return files_.CurrentDirectory(); }
  platform::Result<std::unique_ptr<std::istream>> OpenForReading(const Path& path) override {
    return files_.OpenForReading(path);
  }
  platform::Result<std::unique_ptr<std::ostream>> OpenForAppending(const Path& path) override {
    return files_.OpenForAppending(path);
  }
  platform::Result<std::unique_ptr<std::ostream>> OpenForWriting(const Path& path) override {
    return files_.OpenForWriting(path);
  }
  platform::Result<std::unique_ptr<std::ostream>> OpenTextForWriting(const Path& path) override {
    return files_.OpenTextForWriting(path);
  }

 private:
  platform::Files& files_;
};

}  // namespace vosk::support
