// A small working model of the system under VOSK, with virtual time. One host at a time: it makes a
// temporary directory and makes that the current one, so that "C:/VOSK" is a folder below it.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/host.h"
#include "simulation/choke_point.h"
#include "simulation/clock.h"
#include "simulation/console.h"
#include "simulation/dumps.h"
#include "simulation/files.h"
#include "simulation/installer.h"
#include "simulation/machine.h"
#include "simulation/processes.h"
#include "simulation/registry.h"
#include "simulation/system.h"

namespace vosk::simulation {

// How the simulated dump monitor works.
struct MonitorBehaviour {
  int dumps_per_crash = 1;
  std::size_t dump_size = 40'000;
  Duration writing_time{1000};                     // from the end of the Core to the finished dump
  bool leaves_at_once = false;                     // as it does if it cannot attach
  std::uint32_t smallest_exception = 0x8000'0000;  // lower exit codes are no unhandled exceptions
};

// What a power cut leaves of a file that was written shortly before.
enum class AfterPowerCut { whole, cut_short, empty };

class SimulatedHost {
 public:
  SimulatedHost();
  ~SimulatedHost();
  SimulatedHost(const SimulatedHost&) = delete;
  SimulatedHost& operator=(const SimulatedHost&) = delete;

  [[nodiscard]] platform::Host Bundle() {
    return {clock, console, dump_writer, files, installer, machine, processes, registry, system};
  }

  // --- Setting the scene -------------------------------------------------------------------

  // Plans something for a time counted from the start.
  void At(Duration time, std::function<void(SimulatedHost&)> happening);
  // Creates an executable's file and sets what runs when it is started.
  void InstallProgram(const std::filesystem::path& executable, Program program = {});
  // Installs a Core that runs until something ends it, at the default place or at another.
  void InstallCore();
  void InstallCore(const std::filesystem::path& executable, Program program = {});
  // Puts procdump64.exe beside VOSK.exe.
  void InstallMonitor(MonitorBehaviour behaviour = {});
  // Returns a program that ends by itself.
  [[nodiscard]] Program LivesFor(Duration life, std::uint32_t exit_code);
  // Writes a file with its missing parents, past the choke point.
  void PutFile(const std::filesystem::path& path, const std::string& bytes);
  // Installs a Core with a log and a monitor, as an operator's machine has them.
  void Furnish(MonitorBehaviour monitor = {});
  // Fills the registry with the values that describe a Windows 11.
  void FurnishWindows();
  void FailNext(std::string operation, std::uint32_t code, int times = 1);

  // --- What happens ------------------------------------------------------------------------

  // Ends the running Core that was started last; the monitor sees it end.
  void CoreExits(std::uint32_t exit_code);
  void DumpAppears(const std::string& name, const std::string& bytes);
  void KeyPressed(int key) { console.keys.push_back(key); }
  // VOSK has ended (see VoskEnded, or by itself): the system takes back its handles. After a power
  // cut everything else ends, too, and files written since the last `Settle` are whole, cut short
  // or empty.
  void VoskIsGone(std::uint32_t exit_code);
  void PowerIsGone(AfterPowerCut unsettled);
  // What is on the disk now will survive a power cut.
  void Settle();
  // Starts a new VOSK: a process that already runs, or a new one.
  void VoskBegins(platform::ProcessId pid = 0);

  // --- Looking at it -----------------------------------------------------------------------

  // Returns a sentence for each handle, snapshot or part left open, for COM out of balance and for
  // a console that is not as it was found.
  [[nodiscard]] std::vector<std::string> Leftovers() const;

  [[nodiscard]] static std::string ReadFile(const std::filesystem::path& path);
  [[nodiscard]] std::filesystem::path DumpDirectory() const;
  [[nodiscard]] std::filesystem::path LogFile() const;
  // Returns the names in a directory, sorted; none if it does not exist.
  [[nodiscard]] static std::vector<std::string> NamesIn(const std::filesystem::path& directory);

  ChokePoint choke;
  SimClock clock{choke};
  SimProcesses processes{choke, clock};
  SimFiles files{choke, clock};
  SimInstaller installer{choke, clock, processes, files};
  SimRegistry registry{choke};
  SimConsole console{choke};
  SimSystem system{choke};
  DumpLedger dumps{clock};
  SimDumpWriter dump_writer{choke, processes, files, dumps};
  SimMachine machine{choke};

 private:
  bool AttachDebugger(platform::ProcessId debugger, platform::ProcessId target_pid);
  void RunMonitor(SimProcess& self, const MonitorBehaviour& behaviour);
  void WriteCrashDumps(const std::string& directory, const MonitorBehaviour& behaviour);
  // The size and the version's number of each file below the root.
  using FileStates = std::map<std::filesystem::path, std::pair<std::uintmax_t, std::uint64_t>>;
  [[nodiscard]] FileStates Survey() const;

  void Damage(AfterPowerCut unsettled);

  std::filesystem::path found_directory_;
  std::filesystem::path root_;
  FileStates settled_;
};

}  // namespace vosk::simulation
