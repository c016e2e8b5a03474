// What no life comes across, asked of the units themselves.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "simulation/servers.h"
#include "supervisor/host_info_self_test.h"
#include "supervisor/update_schedule.h"
#include "supervisor/watched_core.h"
#include "tests/support/checked_host.h"
#include "tests/support/fake_downloader.h"
#include "tests/support/variants.h"

namespace vosk::supervisor {
namespace {

using support::CheckedHost;
using support::SimulatedHost;

TEST(HostInfoSelfTest, TellsHowItWent) {
  const std::filesystem::path directory = "C:/Dumps";
  using Generate = std::function<bool(SimulatedHost&, const std::filesystem::path&)>;
  const auto writes = [](const std::string& text, bool success = true) {
    return [=](SimulatedHost& host, const std::filesystem::path& path) {
      host.clock.SleepFor(std::chrono::milliseconds(1250));
      host.PutFile(path, text);
      return success;
    };
  };
  const std::tuple<std::string, std::string, Generate> rows[] = {
      {"six lines, one of them empty", "", writes("one\r\ntwo\r\n\r\nfour\nfive\nsix\n")},
      {"one line", "", writes("only")},
      {"an empty report", "", writes("")},
      {"no report", "", [](auto&, auto&) { return true; }},
      {"one that cannot be read", "files.OpenForReading", writes("one")},
      {"one that cannot be removed", "files.Remove", writes("one")},
      {"a failure", "", [](auto&, auto&) { return false; }},
      {"a failure half-way", "", writes("half a rep", false)},
      {"one that cannot be cleared away", "files.Remove", writes("half a rep", false)},
      {"an exception", "", [](auto&, auto&) -> bool { throw std::runtime_error("no memory"); }},
      {"something else that is thrown", "", [](auto&, auto&) -> bool { throw 42; }}};
  support::Variants variants;
  for (const auto& [name, failing, generate] : rows) {
    CheckedHost host;
    support::LogRecorder log(host);
    if (!failing.empty()) host.FailNext(failing, 32);
    HostInfoSelfTest(host.clock, host.files, log.Sink(), [&](const auto& path) {
      return generate(host, path);
    }).Run(directory);
    variants.Add(name, log.Lines(),
                 fmt::format("{} files left", SimulatedHost::NamesIn(directory).size()));
  }
  variants.Expect("supervisor/host_info_self_test.txt");
}

// A supervisor in the middle of its work, as far as an update and a restart see it. There is no
// package, so that every update ends early.
struct Work {
  Work() {
    version.Set("1.2.2");
    servers.latest_version = "1.2.3";
    core = host.processes.Add(u"VELDRAN Core.exe").pid;
    monitor = host.processes.Add(u"procdump64.exe").pid;
    watched.Hold(Held(core), core);
    watched.HoldMonitor(Held(monitor));
  }
  platform::ProcessHandle Held(platform::ProcessId pid) {
    return std::move(*host.processes.Open(0x001F'FFFF, pid));
  }
  void End(platform::ProcessId pid) { host.processes.End(host.processes.At(pid), 7); }

  CheckedHost host;
  support::SimServers servers{host};
  support::LogRecorder log{host};
  SupervisorState state;
  Places places;
  process::ProcessControl processes{host.processes, log.Sink()};
  support::FakeDownloader downloader;
  install::CoreVersion version{host.files, log.Sink()};
  install::CorePackage core_package{host.files, host.installer, log.Sink(), downloader};
  install::Msiexec msiexec{host.processes, processes};
  install::SelfUpdate self_update{host.Bundle(),
                                  log.Sink(),
                                  processes,
                                  core_package,
                                  msiexec,
                                  version,
                                  state.g_terminateMonitoring};
  install::DiskSpace disk_space{host.files, log.Sink()};
  std::unique_ptr<net::VersionService> service = servers.MakeVersionService(log.Sink());
  dumps::ProcDumpAcquisition acquisition{host.files, host.system, log.Sink(), downloader};
  dumps::ProcDumpMonitor procdump_monitor{host.Bundle(), log.Sink(), state.red_alert_mode,
                                          acquisition};
  WatchedCore watched{host.Bundle(), log.Sink(), processes, procdump_monitor, places, state};
  UpdateSchedule update{host.clock, log.Sink(), *service, self_update, disk_space,
                        version,    watched,    places,   state};
  platform::ProcessId core = 0;
  platform::ProcessId monitor = 0;
};

TEST(UpdateSchedule, TellsWhatItFindsBeforeAnUpdate) {
  const std::pair<std::string, std::function<void(Work&)>> rows[] = {
      {"all is as it should be", [](Work&) {}},
      {"the Core has ended", [](Work& work) { work.End(work.core); }},
      {"the monitor has ended", [](Work& work) { work.End(work.monitor); }},
      {"no handle of the Core", [](Work& work) { work.watched.Hold({}, work.core); }},
      {"no handle of the Core, and none to be had",
       [](Work& work) {
         work.watched.Hold({}, work.core);
         work.host.processes.At(work.core).open_error = platform::kAccessDenied;
       }},
      {"a restart goes on", [](Work& work) { work.state.restart_in_progress = true; }},
      {"an update goes on", [](Work& work) { work.state.update_in_progress = true; }},
      {"no room", [](Work& work) { work.host.files.free_space = 1; }}};
  support::Variants variants;
  for (const auto& [name, change] : rows) {
    Work work;
    change(work);
    work.host.clock.SleepFor(std::chrono::minutes(5));
    work.update.CheckPeriodically(work.host.clock.SteadyNow(), /*core_runs=*/true);
    work.update.ForceReinstall();
    variants.Add(
        name, work.log.Lines(),
        fmt::format("Core {}, {}held; monitor {}held", work.watched.Pid(),
                    work.watched.IsHeld() ? "" : "not ", work.watched.HasMonitor() ? "" : "not "));
  }
  variants.Expect("supervisor/update_schedule.txt");
}

TEST(WatchedCore, LeavesAloneWhatItDoesNotKnow) {
  Work work;
  work.watched.Forget();
  work.watched.InitiateGracefulRestart("a test");
  EXPECT_EQ(work.log.Lines(),
            support::LogText{"[WARN] InitiateGracefulRestart called but no target process is "
                             "running/monitored."});
  EXPECT_TRUE(work.watched.HasMonitor());
}

}  // namespace
}  // namespace vosk::supervisor
