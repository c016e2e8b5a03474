// A dump of the running Core, written at once and without ProcDump.
#pragma once

#include <atomic>
#include <filesystem>
#include <tl/expected.hpp>

#include "console/log.h"
#include "platform/host.h"
#include "platform/types.h"

namespace vosk::dumps {

// What is left of a dump that failed.
struct FailedDump {
  std::filesystem::path path;  // empty: none was begun
  // The system has written it, but the file cannot be looked at.
  bool written = false;
};

class ImmediateDump {
 public:
  // `red_alert_mode` is read at each dump; it asks for one of the whole memory.
  ImmediateDump(const platform::Host& host, console::LogSink& log,
                const std::atomic<bool>& red_alert_mode);

  // Writes a dump of a live process. Returns its path if a non-empty file came of it.
  [[nodiscard]] tl::expected<std::filesystem::path, FailedDump> CreateImmediateDump(
      platform::ProcessId pid, const std::filesystem::path& dump_directory);

 private:
  [[nodiscard]] bool IsPresent(const std::filesystem::path& path);
  [[nodiscard]] bool WriteDump(platform::ProcessId pid, const std::filesystem::path& path);
  [[nodiscard]] bool CheckDump(const std::filesystem::path& path);

  platform::Host host_;
  console::LogSink& log_;
  const std::atomic<bool>& red_alert_mode_;
};

}  // namespace vosk::dumps
