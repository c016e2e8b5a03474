// A dump of the running Core, written at once and without ProcDump.
#pragma once

#include <atomic>
#include <filesystem>
#include <optional>

#include "console/log.h"
#include "platform/host.h"
#include "platform/types.h"

namespace vosk::dumps {

class ImmediateDump {
 public:
  // `red_alert_mode` is read at each dump; if set, the dump holds the whole memory.
  ImmediateDump(const platform::Host& host, console::LogSink& log,
                const std::atomic<bool>& red_alert_mode);

  // Writes a dump of a live process. Returns its path only if the file is not empty; after a failed
  // write the partial file stays.
  [[nodiscard]] std::optional<std::filesystem::path> CreateImmediateDump(
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
