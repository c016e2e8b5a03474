#include "platform/windows/file_streams.h"

#include <io.h>

#include <algorithm>
#include <ios>

namespace vosk::platform::windows {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;
// The most that one call of the system reads.
constexpr std::streamsize kLargestRead = 1 << 30;

HandleReader::HandleReader(FileHandle file) : file_(std::move(file)), buffer_(kBufferSize) {}

std::streamsize HandleReader::ReadInto(char* to, std::streamsize count) {
  DWORD done = 0;
  const auto wanted = static_cast<DWORD>(std::min(count, kLargestRead));
  if (!::ReadFile(file_.Get(), to, wanted, &done, nullptr)) {
    // The stream catches this and turns bad.
    throw std::ios_base::failure("ReadFile failed");
  }
  return done;
}

HandleReader::int_type HandleReader::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  const std::streamsize done = ReadInto(buffer_.data(), static_cast<std::streamsize>(kBufferSize));
  setg(buffer_.data(), buffer_.data(), buffer_.data() + done);
  return done == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
}

std::streamsize HandleReader::xsgetn(char* to, std::streamsize count) {
  const std::streamsize buffered = std::min<std::streamsize>(count, egptr() - gptr());
  std::copy_n(gptr(), buffered, to);
  setg(eback(), gptr() + buffered, egptr());
  std::streamsize total = buffered;
  while (total < count) {
    const std::streamsize done = ReadInto(to + total, count - total);
    if (done == 0) break;
    total += done;
  }
  return total;
}

HandleReader::pos_type HandleReader::seekoff(off_type offset, std::ios_base::seekdir from,
                                             std::ios_base::openmode) {
  // What is buffered has been read from the file, but not from the stream.
  if (from == std::ios_base::cur) offset -= egptr() - gptr();
  const DWORD method = from == std::ios_base::beg   ? FILE_BEGIN
                       : from == std::ios_base::cur ? FILE_CURRENT
                                                    : FILE_END;
  LARGE_INTEGER distance{};
  distance.QuadPart = offset;
  LARGE_INTEGER position{};
  if (!::SetFilePointerEx(file_.Get(), distance, &position, method)) return off_type(-1);
  setg(nullptr, nullptr, nullptr);
  return position.QuadPart;
}

HandleReader::pos_type HandleReader::seekpos(pos_type position, std::ios_base::openmode which) {
  return seekoff(position, std::ios_base::beg, which);
}

DescriptorWriter::~DescriptorWriter() {
  ::_close(descriptor_);
}

DescriptorWriter::int_type DescriptorWriter::overflow(int_type character) {
  const char one = traits_type::to_char_type(character);
  return xsputn(&one, 1) == 1 ? character : traits_type::eof();
}

std::streamsize DescriptorWriter::xsputn(const char* from, std::streamsize count) {
  return std::max(0, ::_write(descriptor_, from, static_cast<unsigned>(count)));
}

}  // namespace vosk::platform::windows
