// Moves the running executable out of the way of its successor, and back.
#pragma once

#include <filesystem>
#include <optional>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/system.h"

namespace vosk::install {

// Where the running executable is, and where it is moved aside.
struct SelfNames {
  std::filesystem::path own;
  std::filesystem::path old;
};

class SelfRename {
 public:
  SelfRename(platform::Clock& clock, platform::Files& files, platform::System& system,
             console::LogSink& log);

  // Whether RenameSelf would succeed as things stand, without touching anything. Nothing if not;
  // the reason is in the log.
  [[nodiscard]] std::optional<SelfNames> CheckRenameSelf();

  // Renames the running executable to its name + ".old" and returns that path. Nothing if it
  // failed; the executable then is where it was. The next boot undoes it, if there is no executable
  // in its place by then.
  [[nodiscard]] std::optional<std::filesystem::path> RenameSelf();

  // Undoes the renaming and replaces whatever an installer has put there meanwhile. Returns false
  // if the machine may be without an executable.
  [[nodiscard]] bool RenameBack(const std::filesystem::path& old_path);

 private:
  [[nodiscard]] bool RemoveOlderSelf(const std::filesystem::path& target);
  // Moves again while somebody holds the file, for some seconds.
  using Move = platform::Result<> (platform::Files::*)(const std::filesystem::path&,
                                                       const std::filesystem::path&);
  platform::Result<> MovePatiently(Move move, const std::filesystem::path& from,
                                   const std::filesystem::path& to);

  platform::Clock& clock_;
  platform::Files& files_;
  platform::System& system_;
  console::LogSink& log_;
};

}  // namespace vosk::install
