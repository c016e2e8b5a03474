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

// One call that fails, or at which VOSK or everything ends; "killed:17" is the 17th.
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
  // A machine as an operator has it: the Core, VOSK and the dump monitor in the Core's directory,
  // nothing installed by the installer. The window is low, because drawing is the dearest part.
  Life();

  // Release `version` is installed, and says so in its version file.
  void InstallRelease(const std::string& version);
  // The version service tells of the release, and its package can be downloaded.
  void PublishRelease(const simulation::SimPackage& package);
  // The Cores of this release end with an access violation after this time.
  void MakeCrashing(const std::string& version, Duration after) { crashing_[version] = after; }

  // Something that happens after this time.
  void At(Duration time, std::function<void(Life&)> happening);
  // Everything ends; what was written in the half minute before is whole, cut short or empty.
  void CutPowerAt(Duration time, simulation::AfterPowerCut unsettled);
  void KillVosk();
  void OperatorQuits();
  // The menu's item, counted from 1.
  void OperatorChooses(int item);
  // Where no VOSK.exe is left, somebody notices and puts one there after this time. Without it the
  // life ends there.
  void PutVoskBackAfter(Duration time) { put_back_after_ = time; }
  // As FaultsFromText gives them; they count and hit calls between these times.
  void Add(const std::vector<Fault>& faults, Duration from = Duration(0),
           Duration to = Duration::max());

  // Lives until this time or until the operator has quit. Whoever ends otherwise is started again,
  // as a scheduled task does it.
  void Run(Duration until);

  // How it stands now, for people and for stored texts.
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
