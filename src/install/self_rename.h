// Moves the running executable out of the way of its successor, and back.
#pragma once

#include <filesystem>
#include <optional>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/system.h"

namespace vosk::install {

class SelfRename {
 public:
  SelfRename(platform::Clock& clock, platform::Files& files, platform::System& system,
             console::LogSink& log);

  // Renames the running executable to its name + ".old" and returns that path, or nothing if it
  // failed; the executable is then where it was.
  [[nodiscard]] std::optional<std::filesystem::path> RenameSelf();

  // Undoes the renaming and replaces whatever an installer has put there meanwhile. Returns false
  // if the machine may be without an executable.
  [[nodiscard]] bool RenameBack(const std::filesystem::path& old_path);

 private:
  [[nodiscard]] bool RemoveOlderSelf(const std::filesystem::path& target);

  platform::Clock& clock_;
  platform::Files& files_;
  platform::System& system_;
  console::LogSink& log_;
};

}  // namespace vosk::install
