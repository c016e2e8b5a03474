// The simulated host's files, with someone else at work in the middle of ours.
#pragma once

#include <fstream>
#include <functional>

#include "tests/support/forwarding_files.h"

namespace vosk::support {

class MeddlingFiles : public ForwardingFiles {
 public:
  // What happens just before or after an operation; it may throw.
  using Hook = std::function<void(const Path&)>;

  using ForwardingFiles::ForwardingFiles;

  Hook before_exists = [](const Path&) {};
  Hook before_type = [](const Path&) {};
  Hook after_type = [](const Path&) {};
  Hook before_remove = [](const Path&) {};
  Hook before_create_directories = [](const Path&) {};
  // Before each read from an opened file, with the number of reads so far.
  std::function<void(int)> before_read;

  platform::Result<bool> Exists(const Path& path) override {
    before_exists(path);
    return ForwardingFiles::Exists(path);
  }
  platform::Result<platform::FileType> TypeOf(const Path& path) override {
    before_type(path);
    auto type = ForwardingFiles::TypeOf(path);
    after_type(path);
    return type;
  }
  platform::Result<bool> Remove(const Path& path) override {
    before_remove(path);
    return ForwardingFiles::Remove(path);
  }
  platform::Result<> CreateDirectories(const Path& path) override {
    before_create_directories(path);
    return ForwardingFiles::CreateDirectories(path);
  }
  platform::Result<std::unique_ptr<std::istream>> OpenForReading(const Path& path) override {
    auto stream = ForwardingFiles::OpenForReading(path);
    if (!stream || !before_read) return stream;
    return std::make_unique<WatchedStream>(path, before_read);
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
};

}  // namespace vosk::support
