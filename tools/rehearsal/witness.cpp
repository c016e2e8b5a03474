#include "tools/rehearsal/witness.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "identity.h"
#include "install/work_directory.h"

namespace vosk::rehearsal {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using simulation::SimProcess;

namespace {

// The limits of docs/promises.md.
constexpr Duration kMostTimeDown = 60s;
constexpr Duration kMostTimeUnwatched = 10s;
constexpr Duration kMostTimeOfACycle = 30min;
constexpr Duration kTimeToGetGoing = 60s;
constexpr std::size_t kMostHandles = 32;
constexpr std::uint64_t kMostLinesAnHour = 8'000;
constexpr std::uint64_t kMostRequestsAnHour = 400;

constexpr std::u16string_view kMonitors[] = {u"procdump64.exe", u"procdump.exe"};

constexpr std::string_view kUnsentReport = ".zip.failed_upload";
constexpr std::string_view kGivenUpReport = ".gave_up";
constexpr std::string_view kHalt = "Storage space not sufficient. Halting VOSK Operations.";
constexpr std::string_view kResume = "Storage space is sufficient again. Resuming VOSK Operations.";

// Warnings that belong to a crash and its report and are no obstacle.
constexpr std::string_view kOrdinaryWarnings[] = {
    "Previously monitored target process", "Target process exited abnormally",
    "IMPORTANT: Original dump was already deleted", "Failed to upload zip via TUS",
    "TerminateProcessL: "};

bool StartsWithAny(std::string_view text, const auto& beginnings) {
  return std::ranges::any_of(
      beginnings, [text](std::string_view beginning) { return text.starts_with(beginning); });
}

bool IsCore(const SimProcess& process) {
  return process.executable_name == identity::kCoreExecutable;
}

bool IsMonitor(const SimProcess& process) {
  return std::ranges::find(kMonitors, process.executable_name) != std::end(kMonitors);
}

std::uint64_t SizeOfTree(const fs::path& directory) {
  std::uint64_t size = 0;
  std::error_code ignored;
  for (const auto& entry : fs::recursive_directory_iterator(directory, ignored)) {
    if (entry.is_regular_file(ignored)) size += entry.file_size(ignored);
  }
  return size;
}

}  // namespace

Witness::Witness(simulation::SimulatedHost& host, simulation::SimServers& servers)
    : host_(host), servers_(servers) {
  host_.processes.on_change = [this](const SimProcess& process) { ProcessChanged(process); };
  host_.choke.on_operation = [this](std::string_view operation, const std::string& subject) {
    SeeOperation(operation, subject);
  };
  host_.files.on_write = [this, log = host_.LogFile().lexically_normal()](const fs::path& path,
                                                                          std::string_view text) {
    if (path.lexically_normal() == log) SeeText(text);
  };
}

void Witness::Break(std::string promise, std::string how) {
  const auto same = [&](const BrokenPromise& known) {
    return known.promise == promise && known.how == how;
  };
  if (std::ranges::any_of(broken_, same)) return;
  broken_.push_back({std::move(promise), std::move(how), host_.clock.Elapsed()});
  if (on_break) on_break(broken_.back());
}

void Witness::VoskBegins() {
  ++tally_.vosk_starts;
  // Start-up empties the storage, so this is the last chance to see what was in it.
  CheckDumps();
  const auto kept = DumpsIn({kUnsentReport, kGivenUpReport});
  for (const std::uint32_t number : DumpsOnDisk()) {
    if (kept.contains(number) || received_.contains(number)) continue;
    if (excused_.insert(number).second) ++tally_.dumps_emptied;
  }
  for (const auto& dump : host_.dumps.Written()) {
    if (!kept.contains(dump.number)) excused_.insert(dump.number);
  }
  vosk_runs_ = true;
  loop_runs_ = quitting_ = halted_ = false;
  vosk_began_ = host_.clock.Elapsed();
  last_cycle_ = Waited();
  last_obstacle_ = halt_ended_ = Duration(-1);
  spent_before_ = servers_.time_spent;
  if (host_.processes.Running(identity::kCoreExecutable).empty()) down_since_ = vosk_began_;
}

void Witness::VoskEnds(bool by_itself) {
  vosk_runs_ = false;
  CheckReceived();
  if (!by_itself) return;
  for (const std::string& leftover : host_.Leftovers()) Break("Bounded", leftover);
}

void Witness::PowerIsGone() {
  CheckDumps();
  for (const auto& dump : host_.dumps.Written()) {
    if (received_.count(dump.number) == 0) excused_.insert(dump.number);
  }
}

void Witness::LifeEnds(bool vosk_runs) {
  CheckDumps();
  CloseHour();
  tally_.dumps_kept = static_cast<int>(DumpsOnDisk().size());
  tally_.dumps_written = static_cast<int>(host_.dumps.Written().size());
  tally_.reports_delivered = static_cast<int>(servers_.received.size());
  if (!vosk_runs || quitting_ || host_.clock.Elapsed() - vosk_began_ < kTimeToGetGoing) return;
  if (last_obstacle_ >= vosk_began_) return;
  const bool runs = !host_.processes.Running(identity::kCoreExecutable).empty();
  if (!runs && !down_since_) Break("Startable", "a minute after a start no Core runs");
  if (runs && !CoreIsWatched() && !unwatched_since_) {
    Break("Startable", "a minute after a start nobody watches the Core");
  }
}

void Witness::ProcessChanged(const SimProcess& process) {
  if (IsCore(process)) process.running ? CoreStarts(process) : CoreEnds(process);
  if (IsMonitor(process) && !process.running && !unwatched_since_ &&
      !host_.processes.Running(identity::kCoreExecutable).empty()) {
    unwatched_since_ = host_.clock.Elapsed();
  }
}

void Witness::CoreStarts(const SimProcess& core) {
  if (!core.command_line.empty() && host_.processes.Running(identity::kCoreExecutable).size() > 1) {
    Break("Up", "a second Core was launched beside a running one");
  }
  EndDownTime();
  unwatched_since_ = host_.clock.Elapsed();
}

void Witness::CoreEnds(const SimProcess& core) {
  if (core.exit_code >= 0x8000'0000) ++tally_.crashes;
  if (!host_.processes.Running(identity::kCoreExecutable).empty()) return;
  down_since_ = host_.clock.Elapsed();
  obstacle_ = halted_ ? kHalt : "";
  spent_before_ = servers_.time_spent;
  unwatched_since_.reset();
}

void Witness::EndDownTime() {
  if (!down_since_) return;
  const Duration down = host_.clock.Elapsed() - *down_since_;
  down_since_.reset();
  tally_.core_down += down;
  if (down <= tally_.longest_down) return;
  tally_.longest_down = down;
  tally_.longest_reason = obstacle_.empty() ? "a report, or several, on the way" : obstacle_;
}

bool Witness::CoreIsWatched() {
  return std::ranges::any_of(host_.processes.Running(identity::kCoreExecutable),
                             [this](const SimProcess* core) {
                               const auto& table = host_.processes.Table();
                               const auto debugger = table.find(core->debugger);
                               return debugger != table.end() && debugger->second.running;
                             });
}

void Witness::SeeOperation(std::string_view operation, const std::string& subject) {
  if (operation == "clock.SleepFor") return SeeCycle();
  if (operation == "console.KeyWaiting") loop_runs_ = true;
  if (operation == "files.FreeSpace") last_cycle_ = Waited();
  if (operation == "files.Remove") CheckRemoval(subject);
  if (operation == "processes.Terminate") CheckEndedProcess(subject);
  if (operation == "processes.RunShellCommand") {
    CheckEndedProcess(subject.substr(subject.find_last_of(' ') + 1));
  }
}

void Witness::SeeCycle() {
  const Duration now = host_.clock.Elapsed();
  if (now - hour_began_ >= 1h) CloseHour();
  if (host_.processes.OpenHandles() > kMostHandles) Break("Bounded", "handles are left open");
  if (!vosk_runs_ || quitting_) return;
  if (Waited() - last_cycle_ > kMostTimeOfACycle && loop_runs_) {
    Break("Answers", "a cycle of the loop lasts longer than half an hour");
  }
  CheckUp();
  CheckWatched();
  CheckReceived();
}

Duration Witness::Waited() const {
  return host_.clock.Elapsed() - host_.clock.Leapt();
}

void Witness::CheckUp() {
  if (!down_since_ || !loop_runs_ || halted_) return;
  const Duration since = std::max({*down_since_, vosk_began_, halt_ended_});
  const Duration allowed = kMostTimeDown + servers_.time_spent - spent_before_;
  if (host_.clock.Elapsed() - since <= allowed || last_obstacle_ >= since) return;
  Break("Up", "no Core for a minute, and the log names no obstacle");
}

void Witness::CheckWatched() {
  if (!unwatched_since_) return;
  if (CoreIsWatched()) return unwatched_since_.reset();
  const Duration since = std::max(*unwatched_since_, vosk_began_);
  if (!loop_runs_ || halted_ || host_.clock.Elapsed() - since <= kMostTimeUnwatched) return;
  if (last_obstacle_ >= since) return;
  Break("Watched", "no monitor for ten seconds, and the log names no reason");
}

void Witness::CheckRemoval(const std::string& path) {
  const std::string temp = host_.system.temp_path.generic_string();
  const std::string own = host_.system.module_path.parent_path().generic_string();
  const fs::path where = fs::path(path).lexically_normal();
  const std::string text = where.generic_string();
  const std::string name = where.filename().string();
  const bool in_own_directories =
      text.starts_with(temp + std::string(identity::kDumpStorageName)) ||
      text.starts_with(temp + std::string(identity::kUnsentReportsName)) ||
      text.starts_with(temp + std::string(install::kWorkDirectoryName));
  const bool own_leftover = where.parent_path() == fs::path(own) &&
                            (name.starts_with("VOSK") || name.starts_with("procdump"));
  const bool in_temp = where.parent_path() == fs::path(temp).parent_path();
  if (in_own_directories || own_leftover || in_temp || name == "CoreVersion.txt") return;
  Break("Keeps to itself", fmt::format("{} is removed", name));
}

void Witness::CheckEndedProcess(const std::string& subject) {
  unsigned pid = 0;
  if (std::sscanf(subject.c_str(), "%u", &pid) != 1) return;
  const auto process = host_.processes.Table().find(pid);
  if (process == host_.processes.Table().end()) return;
  const auto& name = process->second.executable_name;
  const bool known = IsCore(process->second) || IsMonitor(process->second) ||
                     name == identity::kSupervisorExecutable || name == u"msiexec.exe";
  if (!known) Break("Keeps to itself", "a stranger's process is ended");
}

void Witness::SeeText(std::string_view text) {
  tally_.log_bytes += text.size();
  partial_line_ += text;
  for (std::size_t end; (end = partial_line_.find('\n')) != std::string::npos;) {
    const std::string line = partial_line_.substr(0, end);
    partial_line_.erase(0, end + 1);
    SeeLine(line);
  }
}

void Witness::SeeLine(std::string_view line) {
  ++tally_.log_lines;
  ++hour_lines_;
  if (on_line) on_line(line);
  // "2025-03-01 09:00:00 [WARN] text"
  constexpr std::size_t kStamp = 20;
  if (line.size() <= kStamp || line[kStamp] != '[') return;
  const std::string_view level_and_text = line.substr(kStamp);
  const std::size_t blank = level_and_text.find(' ');
  if (blank == std::string_view::npos) return;
  const std::string_view text = level_and_text.substr(blank + 1);
  if (!level_and_text.starts_with("[INFO]")) {
    if (!StartsWithAny(text, kOrdinaryWarnings)) {
      last_obstacle_ = host_.clock.Elapsed();
      if (down_since_ && obstacle_.empty()) obstacle_ = text;
    }
  }
  if (text.starts_with("--- Update Sequence Finished")) {
    ++(text.find("Yes") != std::string_view::npos ? tally_.updates_made : tally_.updates_failed);
  }
  if (text.starts_with(kHalt)) halted_ = true;
  if (text.starts_with(kResume)) {
    halted_ = false;
    halt_ended_ = host_.clock.Elapsed();
  }
  CheckIsTrue(text);
}

void Witness::CheckIsTrue(std::string_view text) {
  const auto cores = host_.processes.Running(identity::kCoreExecutable).size();
  if (text.starts_with("VELDRAN Core relaunched successfully.") && cores == 0) {
    Break("True", "a launch is told that was none");
  }
  if (text.starts_with("Successfully uploaded and processed") &&
      servers_.received.size() == received_seen_) {
    Break("True", "an upload is told that was none");
  }
  unsigned pid = 0;
  const std::string line(text);
  const auto& table = host_.processes.Table();
  if (std::sscanf(line.c_str(), "Previously monitored target process (PID %u)", &pid) == 1 &&
      table.count(pid) != 0 && table.at(pid).running) {
    Break("True", "the end of a Core is told that runs");
  }
  if (text.find("is not watched. Attaching") != std::string_view::npos && CoreIsWatched()) {
    Break("Watched", "a false alarm: the Core is watched");
  }
}

void Witness::CheckReceived() {
  for (; received_seen_ < servers_.received.size(); ++received_seen_) {
    const auto& report = servers_.received[received_seen_];
    if (report.dumps.empty()) Break("No dump lost", "a report without a dump was sent");
    for (const simulation::DumpId& dump : report.dumps) {
      if (dump.number == 0) {
        Break("No dump lost", "a dump was sent that never was");
      } else if (++received_[dump.number] > 1) {
        Break("No dump lost", "a dump was sent twice");
      } else if (!dump.whole && excused_.count(dump.number) == 0) {
        Break("No dump lost", "a dump arrived in part");
      }
    }
  }
}

std::set<std::uint32_t> Witness::DumpsOnDisk() {
  return DumpsIn({".dmp", ".dmp.failed_zip", ".zip", kUnsentReport, kGivenUpReport});
}

std::set<std::uint32_t> Witness::DumpsIn(std::initializer_list<std::string_view> endings) {
  std::set<std::uint32_t> found;
  const auto add = [&found](const simulation::DumpId& dump) {
    if (dump.whole) found.insert(dump.number);
  };
  const fs::path temp = host_.DumpDirectory().parent_path();
  for (const fs::path& folder : {host_.DumpDirectory(), temp / identity::kUnsentReportsName}) {
    for (const std::string& name : simulation::SimulatedHost::NamesIn(folder)) {
      if (!std::ranges::any_of(endings, [&](auto ending) { return name.ends_with(ending); })) {
        continue;
      }
      const fs::path path = folder / name;
      if (name.find(".dmp") != std::string::npos) {
        add(simulation::DumpIdOf(simulation::SimulatedHost::ReadFile(path)));
      } else {
        std::ranges::for_each(simulation::DumpsInArchive(path), add);
      }
    }
  }
  return found;
}

void Witness::CheckDumps() {
  CheckReceived();
  const auto& written = host_.dumps.Written();
  const auto is_answered = [this](const auto& dump) {
    return received_.contains(dump.number) || excused_.contains(dump.number);
  };
  while (first_unanswered_ < written.size() && is_answered(written[first_unanswered_])) {
    ++first_unanswered_;
  }
  if (first_unanswered_ >= written.size()) return;
  const auto on_disk = DumpsOnDisk();
  for (std::size_t at = first_unanswered_; at < written.size(); ++at) {
    const std::uint32_t number = written[at].number;
    if (on_disk.count(number) == 0 && received_.count(number) == 0 && excused_.count(number) == 0) {
      Break("No dump lost", "a dump is neither on the disk nor on the server");
    }
  }
}

void Witness::CloseHour() {
  const std::uint64_t requests = servers_.requests - hour_requests_;
  tally_.most_lines_an_hour = std::max(tally_.most_lines_an_hour, hour_lines_);
  tally_.most_requests_an_hour = std::max(tally_.most_requests_an_hour, requests);
  tally_.most_disk_bytes = std::max(tally_.most_disk_bytes, SizeOfTree(host_.DumpDirectory()));
  if (hour_lines_ > kMostLinesAnHour) Break("Bounded", "too many lines in an hour");
  if (requests > kMostRequestsAnHour) Break("Bounded", "too many requests in an hour");
  hour_began_ = host_.clock.Elapsed();
  hour_lines_ = 0;
  hour_requests_ = servers_.requests;
}

}  // namespace vosk::rehearsal
