// A small working model of the system under VOSK, with virtual time. One host at a time: it makes a
// temporary directory and makes that the current one, so that "C:/VOSK" is a folder below it.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/host.h"
#include "tests/support/choke_point.h"
#include "tests/support/sim_clock.h"
#include "tests/support/sim_console.h"
#include "tests/support/sim_files.h"
#include "tests/support/sim_processes.h"
#include "tests/support/sim_system.h"

namespace vosk::support {

// How the simulated dump monitor works.
struct MonitorBehaviour {
  int dumps_per_crash = 1;
  std::size_t dump_size = 40'000;
  Duration writing_time{1000};                     // from the end of the Core to the finished dump
  bool leaves_at_once = false;                     // as it does where it cannot attach
  std::uint32_t smallest_exception = 0x8000'0000;  // exit codes below are no unhandled exception
};

class SimulatedHost {
 public:
  SimulatedHost();
  // Fails the test where a handle or snapshot is left open, COM is not balanced or the console is
  // not as it was found.
  ~SimulatedHost();
  SimulatedHost(const SimulatedHost&) = delete;
  SimulatedHost& operator=(const SimulatedHost&) = delete;

  [[nodiscard]] platform::Host Bundle() {
    return {clock, console, dump_writer, files, processes, system};
  }

  // --- Setting the scene -------------------------------------------------------------------

  // Something that happens at a time counted from the start.
  void At(Duration time, std::function<void(SimulatedHost&)> happening);
  // Puts an executable's file there and tells what runs when it is started.
  void InstallProgram(const std::filesystem::path& executable, Program program = {});
  // The Core, running until something ends it, at the default place or at another.
  void InstallCore();
  void InstallCore(const std::filesystem::path& executable, Program program = {});
  // procdump64.exe beside VOSK.exe.
  void InstallMonitor(MonitorBehaviour behaviour = {});
  // A program that ends by itself.
  [[nodiscard]] Program LivesFor(Duration life, std::uint32_t exit_code);
  // Writes a file with its missing parents, past the choke point.
  void PutFile(const std::filesystem::path& path, const std::string& bytes);
  void FailNext(std::string operation, std::uint32_t code, int times = 1);

  // --- What happens ------------------------------------------------------------------------

  // Ends the running Core that was started last; the monitor sees it end.
  void CoreExits(std::uint32_t exit_code);
  void DumpAppears(const std::string& name, const std::string& bytes);
  void KeyPressed(int key) { console.keys.push_back(key); }

  // --- Looking at it -----------------------------------------------------------------------

  [[nodiscard]] static std::string ReadFile(const std::filesystem::path& path);
  [[nodiscard]] std::filesystem::path DumpDirectory() const;
  [[nodiscard]] std::filesystem::path LogFile() const;
  // The names in a directory, sorted; none where it does not exist.
  [[nodiscard]] static std::vector<std::string> NamesIn(const std::filesystem::path& directory);

  ChokePoint choke;
  SimClock clock{choke};
  SimProcesses processes{choke, clock};
  SimFiles files{choke};
  SimConsole console{choke};
  SimSystem system{choke};
  SimDumpWriter dump_writer{choke, processes, files};

 private:
  bool AttachDebugger(platform::ProcessId debugger, platform::ProcessId target_pid);
  void RunMonitor(SimProcess& self, const MonitorBehaviour& behaviour);
  void WriteCrashDumps(const std::string& directory, const MonitorBehaviour& behaviour);

  std::filesystem::path found_directory_;
  std::filesystem::path root_;
};

}  // namespace vosk::support
