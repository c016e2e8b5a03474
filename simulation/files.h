// Files of the simulated system: real ones below the current directory.
#pragma once

#include <functional>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "simulation/choke_point.h"
#include "simulation/clock.h"

namespace vosk::simulation {

class SimFiles : public platform::Files {
 public:
  SimFiles(ChokePoint& choke, const SimClock& clock) : choke_(choke), clock_(clock) {}

  platform::Result<bool> Exists(const std::filesystem::path& path) override;
  platform::Result<platform::FileType> TypeOf(const std::filesystem::path& path) override;
  platform::Result<std::uint64_t> SizeOf(const std::filesystem::path& path) override;
  platform::Result<bool> IsLink(const std::filesystem::path& path) override;
  platform::Result<std::chrono::system_clock::time_point> LastWriteTime(
      const std::filesystem::path& path) override;
  platform::Result<bool> Remove(const std::filesystem::path& path) override;
  platform::Result<> Rename(const std::filesystem::path& from,
                            const std::filesystem::path& to) override;
  platform::Result<> Replace(const std::filesystem::path& from,
                             const std::filesystem::path& to) override;
  platform::Result<> Flush(const std::filesystem::path& path) override;
  platform::Result<> CheckRename(const std::filesystem::path& path) override;
  platform::Result<> RenameAtNextBoot(const std::filesystem::path& from,
                                      const std::filesystem::path& to) override;
  platform::Result<> Copy(const std::filesystem::path& from,
                          const std::filesystem::path& to) override;
  platform::Result<> CreateDirectories(const std::filesystem::path& path) override;
  platform::Result<std::unique_ptr<platform::DirectoryWalk>> Walk(
      const std::filesystem::path& directory, platform::WalkDepth depth) override;
  platform::Result<std::uint64_t> FreeSpace(const std::filesystem::path& root) override;
  platform::Result<std::filesystem::path> CurrentDirectory() override;
  platform::Result<std::unique_ptr<std::istream>> OpenForReading(
      const std::filesystem::path& path) override;
  platform::Result<std::unique_ptr<std::ostream>> OpenForAppending(
      const std::filesystem::path& path) override;
  platform::Result<std::unique_ptr<std::ostream>> OpenForWriting(
      const std::filesystem::path& path) override;
  platform::Result<std::unique_ptr<std::ostream>> OpenTextForWriting(
      const std::filesystem::path& path) override;

  // Another process holds the file: it allows others what the flags say, and nothing else.
  struct Sharing {
    bool read = false;
    bool remove = false;
  };
  void Hold(const std::filesystem::path& path, Sharing sharing);
  // Lets go of the file, which its holder may have written.
  void Release(const std::filesystem::path& path);
  // Marks the file as written just now, by the simulated clock.
  void Stamp(const std::filesystem::path& path) const;
  [[nodiscard]] bool MayRead(const std::filesystem::path& path) const;
  // Returns whether VOSK has ended: what it still writes no longer reaches the disk.
  [[nodiscard]] bool WriterHasEnded() const { return choke_.VoskHasEnded(); }
  [[nodiscard]] bool MayRemove(const std::filesystem::path& path) const;

  // Returns whether a file is the image of a running process: it may only be renamed.
  std::function<bool(const std::filesystem::path&)> runs;
  // Whether the file was flushed since it was written, and outlives a power cut.
  [[nodiscard]] bool IsFlushed(const std::filesystem::path& path) const;
  // While set, nothing can be written to any open stream.
  bool disk_full = false;
  // The free bytes on each volume, and on volumes that differ, by their root ("D:/").
  std::uint64_t free_space = std::uint64_t{100} << 30;
  std::map<std::filesystem::path, std::uint64_t> free_space_of = {};
  // Called with the bytes for any open stream before they are written.
  std::function<void(const std::filesystem::path&, std::string_view)> on_write;
  // While set, what is written to this file is not kept; logs of years are too long.
  std::filesystem::path discarded = {};
  std::filesystem::path current_directory = "C:/VOSK";
  // What the machine was asked to rename when it starts.
  std::vector<std::pair<std::filesystem::path, std::filesystem::path>> renames_at_boot = {};

 private:
  friend class SimWalk;
  // Why the file may not be renamed, if so.
  [[nodiscard]] platform::Result<> MayRename(const std::filesystem::path& path) const;
  // `flag` says whether the file is emptied or added to.
  platform::Result<std::unique_ptr<std::ostream>> OpenToWrite(std::string_view operation,
                                                              const std::filesystem::path& path,
                                                              int flag);

  ChokePoint& choke_;
  const SimClock& clock_;
  std::multimap<std::filesystem::path, Sharing> held_;
  // What was flushed, and when it had been written.
  std::map<std::filesystem::path, std::filesystem::file_time_type> flushed_;
};

}  // namespace vosk::simulation
