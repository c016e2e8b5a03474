// What start-up sees to before there is something to monitor: ProcDump, room on the disk, a Core.
#pragma once

#include <string>
#include <tl/expected.hpp>

#include "console/log.h"
#include "install/disk_space.h"
#include "install/msi_installer.h"
#include "install/storage_cleanup.h"
#include "net/downloader.h"
#include "platform/host.h"
#include "supervisor/places.h"

namespace vosk::supervisor {

// The services by which something is fetched, made room for and installed.
struct Provisions {
  net::Downloader& downloader;
  install::DiskSpace& disk_space;
  install::StorageCleanup& storage_cleanup;
  install::CorePackage& core_package;
  install::Msiexec& msiexec;
  install::MsiInstaller& msi_installer;
};

class StartupProvision {
 public:
  StartupProvision(const platform::Host& host, console::LogSink& log, const Provisions& provisions);

  // Sees to it that ProcDump is there and empties the dump storage, so that every dump found there
  // later belongs to this run; the text of a failure ends the start-up.
  [[nodiscard]] tl::expected<void, std::string> AcquireProcDump(const Places& places);

  // Removes what an update that was cut short has left in the temporary folder.
  void RemoveUpdateLeftovers(const Places& places);

  // Waits, cleaning up meanwhile, until there is room; for ever if need be.
  void WaitForDiskSpace(const Places& places);

  // Installs a missing Core. False, with the text of the failure in the log, where there is none
  // afterwards.
  [[nodiscard]] bool InstallTarget(Places& places);

 private:
  [[nodiscard]] bool FindInstalledTarget(Places& places);

  platform::Host host_;
  console::LogSink& log_;
  Provisions provisions_;
};

}  // namespace vosk::supervisor
