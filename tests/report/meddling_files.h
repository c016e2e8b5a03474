// The simulated host's files, with someone else at work in the middle of ours.
#pragma once

#include <fstream>
#include <functional>

#include "platform/files.h"

namespace vosk::report {

class MeddlingFiles : public platform::Files {
 public:
  using Path = std::filesystem::path;
  // What happens just before or after an operation; it may throw.
  using Hook = std::function<void(const Path&)>;

  explicit MeddlingFiles(platform::Files& files) : files_(files) {}

  Hook before_exists = [](const Path&) {};
  Hook before_type = [](const Path&) {};
  Hook after_type = [](const Path&) {};
  Hook before_remove = [](const Path&) {};
  Hook before_create_directories = [](const Path&) {};
  // Before each read from an opened file, with the number of reads so far.
  std::function<void(int)> before_read;

  platform::FileResult<bool> Exists(const Path& path) override {
    before_exists(path);
    return files_.Exists(path);
  }
  platform::FileResult<platform::FileType> TypeOf(const Path& path) override {
    before_type(path);
    auto type = files_.TypeOf(path);
    after_type(path);
    return type;
  }
  platform::FileResult<std::uint64_t> SizeOf(const Path& path) override {
    return files_.SizeOf(path);
  }
  platform::FileResult<bool> Remove(const Path& path) override {
    before_remove(path);
    return files_.Remove(path);
  }
  platform::FileResult<> Rename(const Path& from, const Path& to) override {
    return files_.Rename(from, to);
  }
  platform::FileResult<> CreateDirectories(const Path& path) override {
    before_create_directories(path);
    return files_.CreateDirectories(path);
  }
  platform::FileResult<std::unique_ptr<platform::DirectoryWalk>> Walk(
      const Path& directory, platform::WalkDepth depth) override {
    return files_.Walk(directory, depth);
  }
  platform::FileResult<std::unique_ptr<std::istream>> OpenForReading(const Path& path) override {
    auto stream = files_.OpenForReading(path);
    if (!stream || !before_read) return stream;
    return std::make_unique<WatchedStream>(path, before_read);
  }
  tl::expected<std::unique_ptr<std::ostream>, int> OpenForAppending(const Path& path) override {
    return files_.OpenForAppending(path);
  }

 private:
  class WatchedBuffer : public std::filebuf {
   public:
    std::function<void(int)> before_read;

   protected:
    std::streamsize xsgetn(char* to, std::streamsize count) override {
      before_read(reads_++);
      return std::filebuf::xsgetn(to, count);
    }

   private:
    int reads_ = 0;
  };

  class WatchedStream : public std::istream {
   public:
    WatchedStream(const Path& path, std::function<void(int)> before_read) : std::istream(nullptr) {
      buffer_.before_read = std::move(before_read);
      buffer_.open(path, std::ios::in | std::ios::binary);
      rdbuf(&buffer_);
    }

   private:
    WatchedBuffer buffer_;
  };

  platform::Files& files_;
};

}  // namespace vosk::report
