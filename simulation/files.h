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

  // Another process holds the file: it lets others do what the flags say, and nothing else.
  struct Sharing {
    bool read = false;
    bool remove = false;
  };
  void Hold(const std::filesystem::path& path, Sharing sharing);
  // Whoever held the file may have written it.
  void Release(const std::filesystem::path& path);
  // The file was written just now, by the simulated clock.
  void Stamp(const std::filesystem::path& path) const;
  [[nodiscard]] bool MayRead(const std::filesystem::path& path) const;
  // Whether VOSK, which writes just now, has ended and reaches the disk no more.
  [[nodiscard]] bool WriterHasEnded() const { return choke_.VoskHasEnded(); }
  [[nodiscard]] bool MayRemove(const std::filesystem::path& path) const;

  // Whether a file is the image of a running process, which may be renamed only.
  std::function<bool(const std::filesystem::path&)> runs;
  // While set, nothing can be written to any open stream.
  bool disk_full = false;
  // What is free on each volume, in bytes, and on those that differ, by their root ("D:/").
  std::uint64_t free_space = std::uint64_t{100} << 30;
  std::map<std::filesystem::path, std::uint64_t> free_space_of = {};
  // Called with what is written to any open stream, before it is.
  std::function<void(const std::filesystem::path&, std::string_view)> on_write;
  // While set, what is written to this file is not kept: logs of years.
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
};

}  // namespace vosk::simulation
