// Every service of the supervisor: each is made once, here, after those that it needs.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "console/log.h"
#include "console/screen.h"
#include "console/status_bar.h"
#include "console/transfer_progress.h"
#include "dumps/immediate_dump.h"
#include "dumps/procdump_acquisition.h"
#include "dumps/procdump_monitor.h"
#include "identity.h"
#include "install/core_package.h"
#include "install/core_version.h"
#include "install/disk_space.h"
#include "install/msi_installer.h"
#include "install/msiexec.h"
#include "install/self_update.h"
#include "install/storage_cleanup.h"
#include "net/downloader.h"
#include "net/version_service.h"
#include "platform/host.h"
#include "process/process_control.h"
#include "report/archive/report_archive.h"
#include "report/host_info/host_info.h"
#include "report/upload/uploader.h"
#include "supervisor/core_end.h"
#include "supervisor/crash_processing.h"
#include "supervisor/diagnostic_report.h"
#include "supervisor/menu_actions.h"
#include "supervisor/network.h"
#include "supervisor/places.h"
#include "supervisor/report_steps.h"
#include "supervisor/state.h"
#include "supervisor/unsent_reports.h"
#include "supervisor/update_schedule.h"
#include "supervisor/watched_core.h"

namespace vosk::supervisor {

struct Services {
  // Both outlive the services.
  Services(const platform::Host& on_host, Network& with_network)
      : host(on_host), network(with_network) {}

  // How long a launch that was put off has to wait.
  [[nodiscard]] std::optional<std::chrono::steady_clock::duration> NextLaunch() const {
    const auto wait = state.relaunch_not_before - host.clock.SteadyNow();
    if (wait.count() <= 0) return std::nullopt;
    return wait;
  }
  [[nodiscard]] console::StatusSnapshot Status() const {
    return {.core_pid = core.Pid(),
            .core_version = core_version.Current(),
            .crash_count = state.crash_count,
            .uptime = core.Uptime(host.clock.SteadyNow()),
            .next_launch = NextLaunch(),
            .red_alert = state.red_alert_mode.load()};
  }

  // Whether there is something that an upload without haste has to give way to.
  [[nodiscard]] bool SomethingIsDue() {
    const bool core_needs_us =
        core.IsHeld() ? !core.IsRunning() : host.clock.SteadyNow() >= state.relaunch_not_before;
    return core_needs_us || host.console.KeyWaiting() ||
           !disk_space.CheckDiskSpace(places.target_directory, /*verbose=*/false);
  }

  // clang-format off
  const platform::Host host;
  Network& network;
  SupervisorState state;
  Places places;
  console::LogSink log{host.console, host.files, host.system, host.clock, state.menu_visible};
  console::Screen screen{host.console, log};
  console::TransferProgress progress;
  console::StatusBar status_bar{host.console, log, progress, [this] { return Status(); }};
  std::unique_ptr<net::Downloader> downloader = network.MakeDownloader(host, log, progress, state.g_terminateMonitoring);
  std::unique_ptr<net::VersionService> version_service = network.MakeVersionService(log);
  std::unique_ptr<report::Uploader> uploader = network.MakeUploader(host, log, progress);
  process::ProcessControl processes{host.processes, log};
  dumps::ProcDumpAcquisition procdump_acquisition{host.files, host.system, log, *downloader};
  dumps::ProcDumpMonitor procdump_monitor{host, log, state.red_alert_mode, procdump_acquisition};
  dumps::ImmediateDump immediate_dump{host, log, state.red_alert_mode};
  install::CoreVersion core_version{host.files, log};
  install::DiskSpace disk_space{host.files, log};
  install::StorageCleanup storage_cleanup{host.files, host.clock, log, processes};
  install::CorePackage core_package{host.files, host.installer, log, *downloader};
  install::Msiexec msiexec{host.processes, processes};
  install::MsiInstaller msi_installer{host, log, progress, core_package, msiexec};
  install::SelfUpdate self_update{host, log, processes, core_package, msiexec, core_version, state.g_terminateMonitoring};
  WatchedCore core{host, log, processes, procdump_monitor, places, state};
  report::HostInfo host_info{host, log, {std::string(identity::kVersion), core_version.Current(), core.Modules()}};
  report::ReportArchive archive{host.files, host.system, host.clock, log, progress};
  ReportSteps report_steps{host.files, host_info, archive, state.red_alert_mode};
  UnsentReports unsent_reports{host.files, host.clock, log, *uploader, places, [this] { return SomethingIsDue(); }};
  CrashProcessing crash_processing{host.files, log, report_steps, *uploader, unsent_reports};
  DiagnosticReport diagnostic_report{host.files, log, immediate_dump, report_steps, *uploader, unsent_reports, places};
  CoreEndHandling core_end{host.clock, log, core, crash_processing, places, state};
  UpdateSchedule update_schedule{host.clock, log, processes, *version_service, self_update, disk_space, core_version, core, core_end, places, state};
  MenuActions menu{host.console, log, screen, core, core_version, diagnostic_report, update_schedule, state};
  // clang-format on
};

}  // namespace vosk::supervisor
