// Watches a life from outside and says which promises of docs/promises.md were broken, and how.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/servers.h"
#include "simulation/simulated_host.h"

namespace vosk::rehearsal {

using simulation::Duration;

struct BrokenPromise {
  std::string promise;  // "Up", "Watched", as docs/promises.md names it
  std::string how;      // the same words for the same break, whatever the time and the numbers
  Duration at{0};
};

// The sums of a life, for tables.
struct Tally {
  Duration core_down{0};  // while VOSK was there
  Duration longest_down{0};
  std::string longest_reason;  // the first obstacle that the log named meanwhile
  int crashes = 0;
  int vosk_starts = 0;
  int dumps_written = 0;
  int reports_delivered = 0;
  int dumps_kept = 0;     // on the disk when last looked
  int dumps_emptied = 0;  // by a start of VOSK, which empties its storage
  int updates_made = 0;
  int updates_failed = 0;
  std::uint64_t log_bytes = 0;
  std::uint64_t log_lines = 0;
  std::uint64_t most_lines_an_hour = 0;
  std::uint64_t most_requests_an_hour = 0;
  std::uint64_t most_disk_bytes = 0;
};

class Witness {
 public:
  // Both outlive the witness, which takes their hooks.
  Witness(simulation::SimulatedHost& host, simulation::SimServers& servers);

  void VoskBegins();
  // Notes that VOSK has ended, by itself or not.
  void VoskEnds(bool by_itself);
  // Notes that the operator has quit VOSK, which ends the Core, too.
  void OperatorQuits() { quitting_ = true; }
  // Notes that the power is gone: what was being written may be lost.
  void PowerIsGone();
  void LifeEnds(bool vosk_runs);
  void Break(std::string promise, std::string how);

  [[nodiscard]] const std::vector<BrokenPromise>& Broken() const { return broken_; }
  [[nodiscard]] const Tally& Counted() const { return tally_; }
  // Called when a promise is broken.
  std::function<void(const BrokenPromise&)> on_break;
  // Called with every line of the log as it is written.
  std::function<void(std::string_view)> on_line;

 private:
  void ProcessChanged(const simulation::SimProcess& process);
  void CoreStarts(const simulation::SimProcess& core);
  void CoreEnds(const simulation::SimProcess& core);
  void SeeOperation(std::string_view operation, const std::string& subject);
  void SeeCycle();
  void SeeText(std::string_view text);
  void SeeLine(std::string_view line);
  void CheckIsTrue(std::string_view text);
  void CheckUp();
  void CheckWatched();
  void CheckRemoval(const std::string& path);
  void CheckEndedProcess(const std::string& subject);
  void CheckDumps();
  void CheckReceived();
  void CloseHour();
  void EndDownTime();
  [[nodiscard]] bool CoreIsWatched();
  // Returns the time that has passed without leaps: VOSK is not to blame for those.
  [[nodiscard]] Duration Waited() const;
  [[nodiscard]] std::set<std::uint32_t> DumpsOnDisk();
  // Whole dumps in files of VOSK whose names end so.
  [[nodiscard]] std::set<std::uint32_t> DumpsIn(std::initializer_list<std::string_view> endings);

  simulation::SimulatedHost& host_;
  simulation::SimServers& servers_;
  std::vector<BrokenPromise> broken_;
  Tally tally_;
  std::string partial_line_;

  bool vosk_runs_ = false;
  bool quitting_ = false;
  bool loop_runs_ = false;  // VOSK is past its start-up
  bool halted_ = false;     // for lack of disk space, as the log says
  Duration vosk_began_{0};
  std::optional<Duration> down_since_;
  std::optional<Duration> unwatched_since_;
  Duration last_cycle_{0};
  // When the log last named an obstacle, and the first one while there was no Core.
  Duration last_obstacle_{-1};
  Duration halt_ended_{-1};
  Duration spent_before_{0};  // on the servers, when the Core ended
  std::string obstacle_;
  std::size_t received_seen_ = 0;
  std::map<std::uint32_t, int> received_;  // by the dump's number
  std::set<std::uint32_t> excused_;        // dumps that may be lost
  std::size_t first_unanswered_ = 0;       // dumps before this index are all excused or received
  Duration hour_began_{0};
  std::uint64_t hour_lines_ = 0;
  std::uint64_t hour_requests_ = 0;
};

}  // namespace vosk::rehearsal
