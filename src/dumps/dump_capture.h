// Takes dumps of the Core: ProcDump waits for its crash, or one is written at once.
#pragma once

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>

#include "console/log.h"
#include "platform/host.h"
#include "platform/processes.h"

namespace vosk::dumps {

// ProcDump's command line for one monitor; `full_memory` asks for dumps of the whole memory.
[[nodiscard]] std::string MonitorCommandLine(const std::filesystem::path& procdump,
                                             bool full_memory, platform::ProcessId pid,
                                             const std::filesystem::path& dump_directory);

class DumpCapture {
 public:
  // `red_alert_mode` is read at each launch and each dump.
  DumpCapture(const platform::Host& host, console::LogSink& log,
              const std::atomic<bool>& red_alert_mode);

  // Starts ProcDump on the process; it writes dumps into the directory, which is made when missing.
  // An empty handle on failure, the reason being logged. Whether ProcDump really attaches is not
  // awaited.
  [[nodiscard]] platform::ProcessHandle LaunchProcDumpMonitor(
      platform::ProcessId pid, const std::filesystem::path& dump_directory);

  // Writes a dump of a live process now. The path of the dump only when a non-empty file came of
  // it; after a failed write the partial file stays.
  [[nodiscard]] std::optional<std::filesystem::path> CreateImmediateDump(
      platform::ProcessId pid, const std::filesystem::path& dump_directory);

 private:
  [[nodiscard]] bool IsPresent(const std::filesystem::path& path);
  [[nodiscard]] std::filesystem::path FindProcDump();
  [[nodiscard]] bool WriteDump(platform::ProcessId pid, const std::filesystem::path& path);
  [[nodiscard]] bool CheckImmediateDump(const std::filesystem::path& path);

  platform::Host host_;
  console::LogSink& log_;
  const std::atomic<bool>& red_alert_mode_;
};

}  // namespace vosk::dumps
