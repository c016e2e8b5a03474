// The usual way to a dump: ProcDump attached to the Core, waiting for its crash.
#pragma once

#include <atomic>
#include <filesystem>

#include "console/log.h"
#include "dumps/procdump_acquisition.h"
#include "platform/host.h"
#include "platform/processes.h"

namespace vosk::dumps {

class ProcDumpMonitor {
 public:
  // `red_alert_mode` is read at each launch; it asks for dumps of the whole memory. A ProcDump that
  // turns out to be damaged is fetched anew once.
  ProcDumpMonitor(const platform::Host& host, console::LogSink& log,
                  const std::atomic<bool>& red_alert_mode, ProcDumpAcquisition& acquisition);

  // Starts ProcDump on the process; it writes dumps into the directory, which is created if
  // missing. Returns its handle, or an empty one on failure, which is logged. Does not wait until
  // ProcDump has attached.
  [[nodiscard]] platform::ProcessHandle LaunchProcDumpMonitor(
      platform::ProcessId pid, const std::filesystem::path& dump_directory);

 private:
  // The monitor's handle; else the executable if it is that which is damaged, or nothing.
  using Launched = tl::expected<platform::ProcessHandle, std::filesystem::path>;

  [[nodiscard]] Launched Launch(platform::ProcessId pid,
                                const std::filesystem::path& dump_directory);
  // Deletes the executable, and returns whether there is one again.
  [[nodiscard]] bool ReplaceDamaged(const std::filesystem::path& executable,
                                    const std::filesystem::path& work_directory);
  [[nodiscard]] std::filesystem::path FindExecutable();
  [[nodiscard]] bool PrepareDirectory(const std::filesystem::path& directory);

  platform::Host host_;
  console::LogSink& log_;
  const std::atomic<bool>& red_alert_mode_;
  ProcDumpAcquisition& acquisition_;
  bool fetched_anew_ = false;
};

}  // namespace vosk::dumps
