// Checks that the witness of lives sees every broken promise that is staged here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "identity.h"
#include "tools/rehearsal/witness.h"

namespace vosk::rehearsal {
namespace {

using namespace std::chrono_literals;
using simulation::SimServers;
using simulation::SimulatedHost;

struct Row {
  std::string promise;
  std::string how;
  std::function<void(SimulatedHost&, SimServers&)> deed;
};

void CycleFor(SimulatedHost& host, Duration time) {
  host.console.KeyWaiting();
  static_cast<void>(host.files.FreeSpace("C:/"));
  host.clock.SleepFor(time);
  host.clock.SleepFor(1ms);
}

void Log(SimulatedHost& host, std::string_view text) {
  **host.files.OpenForAppending(host.LogFile()) << "2025-03-01 09:00:00 [INFO] " << text << '\n';
}

const Row kRows[] = {
    {"Up", "no Core for a minute, and the log names no obstacle",
     [](SimulatedHost& host, SimServers&) { CycleFor(host, 61s); }},
    {"Up", "a second Core was launched beside a running one",
     [](SimulatedHost& host, SimServers&) {
       host.InstallCore();
       for (int n = 0; n < 2; ++n) {
         EXPECT_TRUE(
             host.processes.Start({.command_line = std::string(identity::kDefaultTargetPath)}));
       }
     }},
    {"Watched", "no monitor for ten seconds, and the log names no reason",
     [](SimulatedHost& host, SimServers&) {
       host.processes.Add(std::u16string(identity::kCoreExecutable));
       CycleFor(host, 11s);
     }},
    {"No dump lost", "a dump is neither on the disk nor on the server",
     [](SimulatedHost& host, SimServers&) {
       static_cast<void>(host.dumps.Write(host.DumpDirectory() / "gone.dmp", 100));
     }},
    {"No dump lost", "a dump was sent twice",
     [](SimulatedHost& host, SimServers& servers) {
       host.PutFile(host.DumpDirectory() / "a.dmp", host.dumps.Write("a.dmp", 100));
       for (int n = 0; n < 2; ++n) servers.received.push_back({"a.zip", {}, {{1, true}}});
     }},
    {"No dump lost", "a dump was sent that never was",
     [](SimulatedHost&, SimServers& servers) {
       servers.received.push_back({"a.zip", {}, {{0, false}}});
     }},
    {"Answers", "a cycle of the loop lasts longer than half an hour",
     [](SimulatedHost& host, SimServers&) { CycleFor(host, 31min); }},
    {"Bounded", "too many requests in an hour",
     [](SimulatedHost&, SimServers& servers) { servers.requests = 401; }},
    {"Bounded", "handles are left open",
     [](SimulatedHost& host, SimServers&) {
       std::vector<platform::ProcessHandle> handles;
       while (handles.size() < 33) {
         auto handle = host.processes.Open(platform::access::kSynchronize, host.processes.OwnId());
         ASSERT_TRUE(handle);
         handles.push_back(std::move(*handle));
       }
       host.clock.SleepFor(1ms);
     }},
    {"True", "a launch is told that was none",
     [](SimulatedHost& host, SimServers&) { Log(host, "VELDRAN Core relaunched successfully."); }},
    {"True", "an upload is told that was none",
     [](SimulatedHost& host, SimServers&) { Log(host, "Successfully uploaded and processed: x"); }},
    {"Keeps to itself", "letter.txt is removed",
     [](SimulatedHost& host, SimServers&) {
       static_cast<void>(host.files.Remove("C:/Users/op/letter.txt"));
     }},
    {"Keeps to itself", "a stranger's process is ended",
     [](SimulatedHost& host, SimServers&) {
       const auto pid = host.processes.Add(u"notepad.exe").pid;
       host.processes.RunShellCommand("taskkill /F /PID " + std::to_string(pid));
     }},
};

TEST(Witness, SeesEveryPromiseBroken) {
  for (const Row& row : kRows) {
    SimulatedHost host;
    SimServers servers(host);
    Witness witness(host, servers);
    witness.VoskBegins();
    row.deed(host, servers);
    witness.LifeEnds(/*vosk_runs=*/true);
    std::vector<std::string> broken;
    for (const BrokenPromise& promise : witness.Broken()) {
      broken.push_back(promise.promise + ": " + promise.how);
    }
    EXPECT_THAT(broken, testing::Contains(row.promise + ": " + row.how));
  }
}

}  // namespace
}  // namespace vosk::rehearsal
