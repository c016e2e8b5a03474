// What happens between the opened log and the monitoring, in its fixed order: the folders,
// ProcDump, the Core, its logs and its version.
#pragma once

#include <string>
#include <tl/expected.hpp>

#include "supervisor/services.h"

namespace vosk::supervisor {

class StartUp {
 public:
  explicit StartUp(Services& services);

  // Finds, fetches or installs what the monitoring needs and fills in the places. Returns false if
  // the monitoring cannot begin; the operator then knows why, from the log and from a box.
  [[nodiscard]] bool Run();

 private:
  // The error is a text; it ends the start-up.
  using Step = tl::expected<void, std::string>;

  [[nodiscard]] Step FixDirectories();
  [[nodiscard]] Step PrepareDumpStorage();
  // Empties the dump storage as well, so that every dump found there later belongs to this run.
  [[nodiscard]] Step AcquireProcDump();
  // Removes what an update that was cut short has left in the temporary folder.
  void RemoveUpdateLeftovers();
  [[nodiscard]] bool LocateTarget();
  // Waits, cleaning up meanwhile, until there is room; for ever if need be.
  void WaitForDiskSpace();
  // Returns false if there is still no Core afterwards; the reason is logged.
  [[nodiscard]] bool InstallTarget();
  // Finds where the Core keeps its statistics and logs. If that is out of reach, the place stays
  // empty and a warning is logged.
  void LocateLogRoot();
  void DetermineCoreVersion();
  void LogMonitoringBanner();

  bool EndInitialization(const std::string& text);

  Services& services_;
  const platform::Host& host_;
  console::LogSink& log_;
  Places& places_;
};

}  // namespace vosk::supervisor
