// Tests on the units themselves what no life comes across.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "simulation/servers.h"
#include "supervisor/host_info_self_test.h"
#include "supervisor/services.h"
#include "tests/support/checked_host.h"
#include "tests/support/stored_text.h"
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
// package, so every update ends early.
struct Work {
  Work() {
    services.log.OpenLogFile();
    services.core_version.Set("1.2.2");
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
  [[nodiscard]] support::LogText Lines() const {
    const support::LogText all = simulation::LogOf(host);
    return {all.begin() + 2, all.end()};
  }

  CheckedHost host;
  support::SimServers servers{host};
  Services services{host.Bundle(), servers};
  WatchedCore& watched = services.core;
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
      {"a restart goes on", [](Work& work) { work.services.state.restart_in_progress = true; }},
      {"an update goes on", [](Work& work) { work.services.state.update_in_progress = true; }},
      {"no room", [](Work& work) { work.host.files.free_space = 1; }}};
  support::Variants variants;
  for (const auto& [name, change] : rows) {
    Work work;
    change(work);
    work.host.clock.SleepFor(std::chrono::minutes(5));
    work.services.update_schedule.CheckPeriodically(work.host.clock.SteadyNow(),
                                                    /*core_runs=*/true);
    work.services.update_schedule.ForceReinstall();
    variants.Add(
        name, work.Lines(),
        fmt::format("Core {}, {}held; monitor {}held", work.watched.Pid(),
                    work.watched.IsHeld() ? "" : "not ", work.watched.HasMonitor() ? "" : "not "));
  }
  variants.Expect("supervisor/update_schedule.txt");
}

TEST(WatchedCore, LeavesAloneWhatItDoesNotKnow) {
  Work work;
  work.watched.Forget();
  work.watched.InitiateGracefulRestart("a test");
  EXPECT_EQ(work.Lines(),
            support::LogText{"[WARN] InitiateGracefulRestart called but no target process is "
                             "running/monitored."});
  EXPECT_TRUE(work.watched.HasMonitor());
}

// Reports in the dump storage, an hour between one and the next.
struct Unsent : Work {
  Unsent() {
    services.places.dump_storage_directory = host.DumpDirectory();
    services.places.target_directory = "C:/";
    servers.server_up = false;
    host.clock.SetBudget(std::chrono::hours(60 * 24));
    for (const char* name : {"first", "second", "third"}) {
      const auto path = host.DumpDirectory() / (std::string(name) + ".zip.failed_upload");
      host.PutFile(path, "PK");
      std::filesystem::resize_file(path, std::uintmax_t{1} << 30);
      host.files.Stamp(path);
      host.clock.SleepFor(std::chrono::hours(1));
    }
  }
  // What is where, and what of it was told.
  std::string Told() {
    std::string told;
    for (const auto& line : Lines()) told += line + '\n';
    for (const auto& folder : {host.DumpDirectory(),
                               host.DumpDirectory().parent_path() / identity::kUnsentReportsName}) {
      for (const auto& name : support::SimulatedHost::NamesIn(folder)) told += "= " + name + '\n';
    }
    return told;
  }
  void Send() { services.unsent_reports.SendWhenDue(host.clock.SteadyNow()); }
};

TEST(UnsentReports, KeepWithinBoundsAndEndInTime) {
  Unsent work;
  const auto chapter = [&](const char* title) { work.services.log.LogInfo(title); };
  chapter("An earlier run's reports, three times a gibibyte");
  work.services.unsent_reports.Rescue();
  chapter("The server is down");
  for (int attempt = 0; attempt < 2; ++attempt, work.host.clock.SleepFor(std::chrono::hours(1))) {
    work.Send();
    work.Send();
  }
  chapter("The operator presses a key");
  work.servers.server_up = true;
  work.host.console.keys = {'x'};
  work.Send();
  chapter("A month is over");
  work.host.clock.SleepFor(std::chrono::hours(30 * 24) - std::chrono::hours(4));
  work.Send();
  support::ExpectStoredText("supervisor/unsent_reports.txt", work.Told());
}

}  // namespace
}  // namespace vosk::supervisor
