// Decides when the Core and VOSK are updated: at start-up, every few minutes, and when the operator
// asks for it. How they are replaced is the business of install::SelfUpdate.
#pragma once

#include <string>

#include "console/log.h"
#include "install/core_version.h"
#include "install/disk_space.h"
#include "install/self_update.h"
#include "net/version_service.h"
#include "platform/clock.h"
#include "supervisor/backoff.h"
#include "supervisor/core_end.h"
#include "supervisor/places.h"
#include "supervisor/state.h"
#include "supervisor/watched_core.h"

namespace vosk::supervisor {

class UpdateSchedule {
 public:
  UpdateSchedule(platform::Clock& clock, console::LogSink& log, process::ProcessControl& processes,
                 net::VersionService& version_service, install::SelfUpdate& self_update,
                 install::DiskSpace& disk_space, const install::CoreVersion& core_version,
                 WatchedCore& core, CoreEndHandling& core_end, const Places& places,
                 SupervisorState& state);

  // Called once, before the loop. Afterwards VOSK goes on, or ends because its successor runs.
  void CheckAtStartup();

  // Called on every cycle: asks the version service if it is time, and updates if a newer version
  // is known. `core_runs` is what the cycle has found.
  void CheckPeriodically(SupervisorState::SteadyTime now, bool core_runs);

  // Installs the latest version even if it is not newer.
  void ForceReinstall();

 private:
  [[nodiscard]] std::string FetchVersion();
  void UpdateAtStartup(const std::string& latest);
  [[nodiscard]] bool RunSequence(const std::string& version);
  [[nodiscard]] bool EndCore();
  // Decides, after a failure, when this version is tried again.
  void PutOff(const std::string& version);

  platform::Clock& clock_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
  net::VersionService& version_service_;
  install::SelfUpdate& self_update_;
  install::DiskSpace& disk_space_;
  const install::CoreVersion& core_version_;
  WatchedCore& core_;
  CoreEndHandling& core_end_;
  const Places& places_;
  SupervisorState& state_;

  std::string failed_version_;
  Backoff backoff_;
  SupervisorState::SteadyTime next_attempt_{};
};

}  // namespace vosk::supervisor
