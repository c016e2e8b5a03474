// The streams by which files of the simulated system are read.
#pragma once

#include <filesystem>
#include <fstream>
#include <istream>

namespace vosk::simulation {

// Reads the first half of a file, then breaks.
class BreakingBuffer : public std::filebuf {
 public:
  void BreakAt(std::streamoff offset) { break_at_ = offset; }

 protected:
  std::streamsize xsgetn(char* to, std::streamsize count) override {
    if (seekoff(0, std::ios::cur, std::ios::in) + count > break_at_) Break();
    return std::filebuf::xsgetn(to, count);
  }
  int_type underflow() override {
    if (seekoff(0, std::ios::cur, std::ios::in) >= break_at_) Break();
    return std::filebuf::underflow();
  }

 private:
  // A stream turns what its buffer throws into its own bad state.
  [[noreturn]] static void Break() { throw std::ios_base::failure("read error"); }
  std::streamoff break_at_ = 0;
};

template <typename Buffer>
class ReadingStream : public std::istream {
 public:
  explicit ReadingStream(const std::filesystem::path& path) : std::istream(nullptr) {
    buffer_.open(path, std::ios::in | std::ios::binary);
    rdbuf(&buffer_);
    if (!buffer_.is_open()) setstate(failbit);
  }
  Buffer& Bytes() { return buffer_; }

 private:
  Buffer buffer_;
};

}  // namespace vosk::simulation
