// The buffers behind the streams that Files opens.
#pragma once

#include <windows.h>

#include <istream>
#include <ostream>
#include <streambuf>
#include <vector>

#include "platform/windows/unique_handle.h"

namespace vosk::platform::windows {

// Reads a file through its handle. A read that the system refuses makes the stream bad; the end of
// the file does not.
class HandleReader : public std::streambuf {
 public:
  explicit HandleReader(FileHandle file);

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* to, std::streamsize count) override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir from,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  std::streamsize ReadInto(char* to, std::streamsize count);

  FileHandle file_;
  std::vector<char> buffer_;
};

// Writes to a descriptor of the C library, unbuffered: text that could not be written is not kept
// and written again later.
class DescriptorWriter : public std::streambuf {
 public:
  explicit DescriptorWriter(int descriptor) : descriptor_(descriptor) {}
  ~DescriptorWriter() override;

 protected:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* from, std::streamsize count) override;

 private:
  int descriptor_;
};

// A stream that owns its buffer.
template <typename Stream, typename Buffer>
class StreamOver : public Stream {
 public:
  template <typename Source>
  explicit StreamOver(Source source) : Stream(nullptr), buffer_(std::move(source)) {
    this->rdbuf(&buffer_);
  }

 private:
  Buffer buffer_;
};

}  // namespace vosk::platform::windows
