#include "simulation/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

#include "simulation/reading_stream.h"

namespace vosk::simulation {

namespace fs = std::filesystem;
using platform::Error;
using platform::Result;

namespace {

// Returns the system's number for an error of the build machine.
std::uint32_t CodeOf(const std::error_code& error, const fs::path& path) {
  std::error_code ignored;
  if (error == std::errc::no_such_file_or_directory) {
    const fs::path parent = path.parent_path();
    return parent.empty() || fs::is_directory(parent, ignored) ? 2 : 3;
  }
  if (error == std::errc::file_exists) return 183;
  if (error == std::errc::directory_not_empty) return 145;
  if (error == std::errc::not_a_directory) return 3;
  if (error == std::errc::no_space_on_device) return 112;
  if (error == std::errc::permission_denied) return 5;
  return 87;
}

tl::unexpected<Error> Failed(std::uint32_t code) {
  return tl::unexpected(Error{{code}, ErrorText(code)});
}

tl::unexpected<Error> Failed(const std::error_code& error, const fs::path& path) {
  return Failed(CodeOf(error, path));
}

// Writes without a buffer of its own and takes nothing while the disk is full.
class WritingBuffer : public std::streambuf {
 public:
  WritingBuffer(int file, SimFiles& files, fs::path path)
      : file_(file), files_(files), path_(std::move(path)) {
    files_.Hold(path_, {.read = true, .remove = false});
  }
  ~WritingBuffer() override {
    ::close(file_);
    files_.Release(path_);
  }

 protected:
  std::streamsize xsputn(const char* from, std::streamsize count) override {
    if (files_.WriterHasEnded()) return 0;
    if (files_.on_write) files_.on_write(path_, {from, static_cast<std::size_t>(count)});
    if (path_ == files_.discarded) return count;
    if (files_.disk_full) {
      errno = ENOSPC;
      return 0;
    }
    return std::max<ssize_t>(0, ::write(file_, from, static_cast<std::size_t>(count)));
  }
  int_type overflow(int_type character) override {
    const char one = traits_type::to_char_type(character);
    return xsputn(&one, 1) == 1 ? character : traits_type::eof();
  }

 private:
  int file_;
  SimFiles& files_;
  fs::path path_;
};

class WritingStream : public std::ostream {
 public:
  WritingStream(int file, SimFiles& files, const fs::path& path)
      : std::ostream(nullptr), buffer_(file, files, path) {
    rdbuf(&buffer_);
  }

 private:
  WritingBuffer buffer_;
};

std::vector<fs::path> SortedEntries(const fs::path& directory, std::error_code& error) {
  std::vector<fs::path> entries;
  for (fs::directory_iterator at(directory, error); !error && at != fs::directory_iterator();
       at.increment(error)) {
    entries.push_back(at->path());
  }
  std::ranges::sort(entries);
  return entries;
}

}  // namespace

// Returns the entries sorted by name, as the system's own file system does.
class SimWalk : public platform::DirectoryWalk {
 public:
  SimWalk(SimFiles& files, std::vector<fs::path> entries, platform::WalkDepth depth)
      : files_(files), depth_(depth) {
    Push(std::move(entries));
  }

  Result<std::optional<fs::path>> Next() override {
    const std::string subject = ahead_.empty() ? "" : ahead_.back().string();
    return files_.choke_.Perform("files.Walk.Next", subject, [&] { return Step(); });
  }

 private:
  Result<std::optional<fs::path>> Step() {
    if (!to_enter_.empty()) {
      std::error_code error;
      std::vector<fs::path> entries = SortedEntries(to_enter_, error);
      if (error) return Failed(error, std::exchange(to_enter_, {}));
      to_enter_.clear();
      Push(std::move(entries));
    }
    if (ahead_.empty()) return std::nullopt;
    const fs::path entry = std::move(ahead_.back());
    ahead_.pop_back();
    std::error_code ignored;
    const bool directory = fs::symlink_status(entry, ignored).type() == fs::file_type::directory;
    if (directory && depth_ == platform::WalkDepth::whole_tree) to_enter_ = entry;
    return entry;
  }

  void Push(std::vector<fs::path> entries) {
    ahead_.insert(ahead_.end(), entries.rbegin(), entries.rend());
  }

  SimFiles& files_;
  platform::WalkDepth depth_;
  std::vector<fs::path> ahead_;  // the next one is the last
  fs::path to_enter_;            // the directory that was returned last
};

void SimFiles::Hold(const fs::path& path, Sharing sharing) {
  held_.emplace(path.lexically_normal(), sharing);
}

void SimFiles::Release(const fs::path& path) {
  const auto held = held_.find(path.lexically_normal());
  if (held != held_.end()) held_.erase(held);
  Stamp(path);
}

void SimFiles::Stamp(const fs::path& path) const {
  std::error_code ignored;
  fs::last_write_time(path, std::chrono::file_clock::from_sys(clock_.MachineTime()), ignored);
}

bool SimFiles::MayRead(const fs::path& path) const {
  const auto [first, last] = held_.equal_range(path.lexically_normal());
  return std::all_of(first, last, [](const auto& held) { return held.second.read; });
}

bool SimFiles::MayRemove(const fs::path& path) const {
  const auto [first, last] = held_.equal_range(path.lexically_normal());
  return std::all_of(first, last, [](const auto& held) { return held.second.remove; });
}

Result<bool> SimFiles::Exists(const fs::path& path) {
  return choke_.Perform("files.Exists", path.string(), [&]() -> Result<bool> {
    std::error_code error;
    const bool exists = fs::exists(path, error);
    if (error && error != std::errc::not_a_directory) return Failed(error, path);
    return exists;
  });
}

Result<platform::FileType> SimFiles::TypeOf(const fs::path& path) {
  return choke_.Perform("files.TypeOf", path.string(), [&]() -> Result<platform::FileType> {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error) return Failed(error, path);
    if (fs::is_directory(status)) return platform::FileType::directory;
    return fs::is_regular_file(status) ? platform::FileType::regular : platform::FileType::other;
  });
}

Result<std::uint64_t> SimFiles::SizeOf(const fs::path& path) {
  return choke_.Perform("files.SizeOf", path.string(), [&]() -> Result<std::uint64_t> {
    std::error_code error;
    const std::uint64_t size = fs::file_size(path, error);
    if (error) return Failed(error, path);
    return size;
  });
}

Result<bool> SimFiles::IsLink(const fs::path& path) {
  return choke_.Perform("files.IsLink", path.string(), [&]() -> Result<bool> {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (error) return Failed(error, path);
    return fs::is_symlink(status);
  });
}

Result<std::chrono::system_clock::time_point> SimFiles::LastWriteTime(const fs::path& path) {
  using Time = std::chrono::system_clock::time_point;
  return choke_.Perform("files.LastWriteTime", path.string(), [&]() -> Result<Time> {
    std::error_code error;
    const auto written = fs::last_write_time(path, error);
    if (error) return Failed(error, path);
    return std::chrono::time_point_cast<Time::duration>(std::chrono::file_clock::to_sys(written));
  });
}

Result<bool> SimFiles::Remove(const fs::path& path) {
  return choke_.Perform("files.Remove", path.string(), [&]() -> Result<bool> {
    if (!MayRemove(path)) return Failed(32);
    if (runs && runs(path)) return Failed(5);
    std::error_code error;
    const bool removed = fs::remove(path, error);
    if (error) return Failed(error, path);
    return removed;
  });
}

Result<> SimFiles::MayRename(const fs::path& path) const {
  std::error_code error;
  if (!fs::exists(fs::symlink_status(path, error))) {
    return Failed(std::make_error_code(std::errc::no_such_file_or_directory), path);
  }
  if (!MayRemove(path)) return Failed(32);
  return {};
}

Result<> SimFiles::CheckRename(const fs::path& path) {
  return choke_.Perform("files.CheckRename", path.string(), [&] { return MayRename(path); });
}

Result<> SimFiles::RenameAtNextBoot(const fs::path& from, const fs::path& to) {
  const std::string subject = fmt::format("{} -> {}", from.string(), to.string());
  return choke_.Perform("files.RenameAtNextBoot", subject, [&]() -> Result<> {
    renames_at_boot.emplace_back(from, to);
    return {};
  });
}

Result<> SimFiles::Copy(const fs::path& from, const fs::path& to) {
  const std::string subject = fmt::format("{} -> {}", from.string(), to.string());
  return choke_.Perform("files.Copy", subject, [&]() -> Result<> {
    std::error_code error;
    if (!MayRead(from)) return Failed(32);
    if (fs::exists(fs::symlink_status(to, error))) return Failed(80);
    fs::copy_file(from, to, error);
    if (error) return Failed(CodeOf(error, fs::exists(from) ? to : from));
    return {};
  });
}

Result<> SimFiles::Rename(const fs::path& from, const fs::path& to) {
  const std::string subject = fmt::format("{} -> {}", from.string(), to.string());
  return choke_.Perform("files.Rename", subject, [&]() -> Result<> {
    if (const auto may = MayRename(from); !may) return may;
    std::error_code error;
    if (fs::exists(fs::symlink_status(to, error))) return Failed(183);
    fs::rename(from, to, error);
    if (error) return Failed(3);  // the new name's folder is missing
    return {};
  });
}

Result<> SimFiles::Replace(const fs::path& from, const fs::path& to) {
  const std::string subject = fmt::format("{} -> {}", from.string(), to.string());
  return choke_.Perform("files.Replace", subject, [&]() -> Result<> {
    if (const auto may = MayRename(from); !may) return may;
    std::error_code error;
    if (!MayRemove(to) || fs::is_directory(to, error) || (runs && runs(to))) return Failed(5);
    fs::rename(from, to, error);
    if (error) return Failed(3);  // the new name's folder is missing
    flushed_.erase(fs::absolute(to));
    if (auto moved = flushed_.extract(fs::absolute(from))) {
      moved.key() = fs::absolute(to);
      flushed_.insert(std::move(moved));
    }
    return {};
  });
}

Result<> SimFiles::Flush(const fs::path& path) {
  return choke_.Perform("files.Flush", path.string(), [&]() -> Result<> {
    std::error_code error;
    const auto written = fs::last_write_time(path, error);
    if (error) return Failed(error, path);
    flushed_[fs::absolute(path)] = written;
    return {};
  });
}

bool SimFiles::IsFlushed(const fs::path& path) const {
  std::error_code ignored;
  const auto flushed = flushed_.find(fs::absolute(path));
  return flushed != flushed_.end() && flushed->second == fs::last_write_time(path, ignored);
}

Result<> SimFiles::CreateDirectories(const fs::path& path) {
  return choke_.Perform("files.CreateDirectories", path.string(), [&]() -> Result<> {
    std::error_code error;
    fs::create_directories(path, error);
    if (!error && fs::is_directory(path)) return {};
    return Failed(183);  // a file is in the directory's place
  });
}

Result<std::unique_ptr<platform::DirectoryWalk>> SimFiles::Walk(const fs::path& directory,
                                                                platform::WalkDepth depth) {
  using Answer = Result<std::unique_ptr<platform::DirectoryWalk>>;
  return choke_.Perform("files.Walk", directory.string(), [&]() -> Answer {
    std::error_code error;
    std::vector<fs::path> entries = SortedEntries(directory, error);
    if (error == std::errc::not_a_directory) return Failed(267);
    if (error == std::errc::no_such_file_or_directory) return Failed(3);
    if (error) return Failed(error, directory);
    return std::make_unique<SimWalk>(*this, std::move(entries), depth);
  });
}

platform::Result<std::uint64_t> SimFiles::FreeSpace(const fs::path& root) {
  return choke_.Perform("files.FreeSpace", root.string(), [&]() -> platform::Result<std::uint64_t> {
    std::error_code error;
    if (!fs::is_directory(root, error)) return tl::unexpected(platform::ErrorCode{3});
    const auto differs = free_space_of.find(root);
    return differs != free_space_of.end() ? differs->second : free_space;
  });
}

platform::Result<fs::path> SimFiles::CurrentDirectory() {
  return choke_.Perform("files.CurrentDirectory", {},
                        [&]() -> platform::Result<fs::path> { return current_directory; });
}

Result<std::unique_ptr<std::istream>> SimFiles::OpenForReading(const fs::path& path) {
  using Answer = Result<std::unique_ptr<std::istream>>;
  const auto fault = choke_.Announce("files.OpenForReading", path.string());
  if (fault && fault->kind != FaultKind::broken_stream)
    return FailedOutcome<Answer>("files.OpenForReading", fault->code);
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error) return Failed(error, path);
  if (fs::is_directory(status)) return Failed(5);
  if (!MayRead(path)) return Failed(32);
  if (fault) {
    auto broken = std::make_unique<ReadingStream<BreakingBuffer>>(path);
    broken->Bytes().BreakAt(static_cast<std::streamoff>(fs::file_size(path) / 2));
    return broken;
  }
  auto stream = std::make_unique<ReadingStream<std::filebuf>>(path);
  if (!stream->good()) return Failed(5);
  return stream;
}

Result<std::unique_ptr<std::ostream>> SimFiles::OpenForAppending(const fs::path& path) {
  return OpenToWrite("files.OpenForAppending", path, O_APPEND);
}

Result<std::unique_ptr<std::ostream>> SimFiles::OpenForWriting(const fs::path& path) {
  return OpenToWrite("files.OpenForWriting", path, O_TRUNC);
}

Result<std::unique_ptr<std::ostream>> SimFiles::OpenTextForWriting(const fs::path& path) {
  return OpenToWrite("files.OpenTextForWriting", path, O_TRUNC);
}

Result<std::unique_ptr<std::ostream>> SimFiles::OpenToWrite(std::string_view operation,
                                                            const fs::path& path, int flag) {
  using Answer = Result<std::unique_ptr<std::ostream>>;
  return choke_.Perform(operation, path.string(), [&]() -> Answer {
    const auto failed = [](int number) {
      return tl::unexpected(platform::ErrorCode{static_cast<std::uint32_t>(number)});
    };
    if (!MayRead(path)) return failed(EACCES);
    const int file = ::open(path.c_str(), O_WRONLY | flag | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return failed(errno == EISDIR ? EACCES : errno);
    return std::make_unique<WritingStream>(file, *this, path);
  });
}

}  // namespace vosk::simulation
