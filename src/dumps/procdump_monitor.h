// The usual way to a dump: ProcDump attached to the Core, waiting for its crash.
#pragma once

#include <atomic>
#include <filesystem>

#include "console/log.h"
#include "platform/host.h"
#include "platform/processes.h"

namespace vosk::dumps {

class ProcDumpMonitor {
 public:
  // `red_alert_mode` is read at each launch; if set, dumps hold the whole memory.
  ProcDumpMonitor(const platform::Host& host, console::LogSink& log,
                  const std::atomic<bool>& red_alert_mode);

  // Starts ProcDump on the process; it writes dumps into the directory, which is created if
  // missing. Returns its handle, or an empty one on failure, which is logged. Does not wait until
  // ProcDump has attached.
  [[nodiscard]] platform::ProcessHandle LaunchProcDumpMonitor(
      platform::ProcessId pid, const std::filesystem::path& dump_directory);

 private:
  [[nodiscard]] std::filesystem::path FindExecutable();
  [[nodiscard]] bool PrepareDirectory(const std::filesystem::path& directory);

  platform::Host host_;
  console::LogSink& log_;
  const std::atomic<bool>& red_alert_mode_;
};

}  // namespace vosk::dumps
