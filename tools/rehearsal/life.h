// The life of one machine: VOSK after VOSK, with the real supervisor, in virtual time.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulation/servers.h"
#include "simulation/simulated_host.h"
#include "tools/rehearsal/witness.h"

namespace vosk::rehearsal {

// One call that fails, or at which VOSK or everything ends; "killed:17" means the 17th.
struct Fault {
  simulation::FaultRule rule;
  simulation::AfterPowerCut after_power_cut = simulation::AfterPowerCut::whole;
};

// Reads "fails:17", "fails_otherwise:17", "fails_after_effect:17", "broken_stream:17", "killed:17",
// "power:17", "power_short:17" or "power_empty:17", and several of them with "+" in between. Throws
// std::invalid_argument for anything else.
[[nodiscard]] std::vector<Fault> FaultsFromText(const std::string& text);

class Life {
 public:
  // Makes a machine as an operator has it: the Core, VOSK and the dump monitor in the Core's
  // directory, nothing installed by the installer. The window is low, because drawing takes most of
  // the time.
  Life();

  // Installs release `version`, whose Core writes it into its version file.
  void InstallRelease(const std::string& version);
  // Publishes the release: the version service names it, and its package can be downloaded.
  void PublishRelease(const simulation::SimPackage& package);
  // Lets the Cores of this release end with an access violation after this time.
  void MakeCrashing(const std::string& version, Duration after) { crashing_[version] = after; }

  // Plans something for this time.
  void At(Duration time, std::function<void(Life&)> happening);
  // Ends everything; files of the half minute before are then whole, cut short or empty.
  void CutPowerAt(Duration time, simulation::AfterPowerCut unsettled);
  void KillVosk();
  void OperatorQuits();
  // Chooses an item of the menu, counted from 1.
  void OperatorChooses(int item);
  // If no VOSK.exe is left, somebody notices and puts one there after this time. Without this call
  // the life ends there.
  void PutVoskBackAfter(Duration time) { put_back_after_ = time; }
  // Adds faults from FaultsFromText; they count and hit calls between these times.
  void Add(const std::vector<Fault>& faults, Duration from = Duration(0),
           Duration to = Duration::max());

  // Lives until this time or until the operator has quit. If VOSK ends otherwise, it is started
  // again, as by a scheduled task.
  void Run(Duration until);

  // Returns the present state, for people and for stored texts.
  [[nodiscard]] std::string EndState();
  [[nodiscard]] bool FaultWasHit() const { return !host.choke.faults.Fired().empty(); }

  simulation::SimulatedHost host;
  // VOSK's command line.
  std::vector<std::string> arguments;
  simulation::SimServers servers{host};
  Witness witness{host, servers};

 private:
  void RunCore(simulation::SimProcess& core);
  void RunVosk();
  void TakeOver(platform::ProcessId successor);
  void StartAgainAfter(Duration pause);
  void SettleAgainAndAgain();
  [[nodiscard]] bool FindVosk();
  [[nodiscard]] bool IsProgram(const std::filesystem::path& file) const;
  [[nodiscard]] std::string VersionOf(const std::filesystem::path& file) const;

  std::map<std::string, Duration> crashing_;
  std::set<std::string> releases_;  // what the files of each release that was installed ever hold
  simulation::AfterPowerCut after_power_cut_ = simulation::AfterPowerCut::whole;
  std::optional<Duration> put_back_after_;
  bool vosk_runs_ = false;
  bool over_ = false;
  bool quit_ = false;
  bool vosk_runs_at_the_end_ = false;
  std::string how_vosk_ended_;
};

}  // namespace vosk::rehearsal
