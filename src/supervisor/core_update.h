// Decides when the Core and VOSK are updated: at start-up, every few minutes, and when the operator
// asks for it.
#pragma once

#include <string>

#include "console/log.h"
#include "install/core_version.h"
#include "install/disk_space.h"
#include "install/self_update.h"
#include "net/version_service.h"
#include "platform/host.h"
#include "process/process_control.h"
#include "supervisor/places.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

struct UpdateServices {
  net::VersionService& version_service;
  install::SelfUpdate& self_update;
  install::DiskSpace& disk_space;
  install::CoreVersion& core_version;
  process::ProcessControl& processes;
};

class CoreUpdate {
 public:
  CoreUpdate(const platform::Host& host, console::LogSink& log, const UpdateServices& services,
             const Places& places, SupervisorState& state);

  // Once, before the loop. Every outcome lets VOSK go on, or end because its successor runs.
  void CheckAtStartup();

  // On every cycle: asks the version service when it is time and updates where a newer version is
  // known. `core_runs` as the cycle has found it.
  void CheckPeriodically(SupervisorState::SteadyTime now, bool core_runs);

  // Installs the latest version even if it is not newer.
  void ForceReinstall();

 private:
  [[nodiscard]] std::string FetchVersion();
  void UpdateAtStartup(const std::string& latest);
  [[nodiscard]] bool RunSequence(const std::string& version);

  void ValidateState(bool core_runs);
  [[nodiscard]] bool ReopenCore();
  void ValidateMonitor();

  platform::Host host_;
  console::LogSink& log_;
  UpdateServices services_;
  const Places& places_;
  SupervisorState& state_;
};

}  // namespace vosk::supervisor
