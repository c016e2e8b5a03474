#include "tools/rehearsal/life.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "identity.h"
#include "install/core_version.h"
#include "supervisor/supervisor.h"
#include "text/utf.h"

namespace vosk::rehearsal {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using simulation::AfterPowerCut;
using simulation::FaultKind;

namespace {

// This is also the time between VOSK's questions to the version service.
constexpr Duration kLeap = 5min;
constexpr Duration kBootTime = 60s;
// The system writes everything older than this to the disk.
constexpr Duration kUnsettled = 30s;
constexpr Duration kTaskRestart = 10s;
constexpr Duration kRestartAfterGivingUp = 60s;
constexpr std::uint32_t kAccessViolation = 0xC0000005;

// Keys as the C runtime returns them; an arrow is a prefix and a code.
constexpr int kEnter = 13;
constexpr int kArrow = 224;
constexpr int kDown = 80;

fs::path InstallDirectory() {
  return text::PathFromUtf8(identity::kInstallDirectory);
}

Fault FaultFromText(std::string_view text) {
  static const std::map<std::string_view, Fault> kKinds = {
      {"fails", {{.kind = FaultKind::fails}}},
      {"fails_otherwise", {{.kind = FaultKind::fails, .alternative = 1}}},
      {"fails_after_effect", {{.kind = FaultKind::fails_after_effect}}},
      {"broken_stream", {{.kind = FaultKind::broken_stream}}},
      {"killed", {{.kind = FaultKind::killed}}},
      {"power", {{.kind = FaultKind::power_cut}, AfterPowerCut::whole}},
      {"power_short", {{.kind = FaultKind::power_cut}, AfterPowerCut::cut_short}},
      {"power_empty", {{.kind = FaultKind::power_cut}, AfterPowerCut::empty}}};
  const std::size_t colon = text.find(':');
  const auto kind = kKinds.find(text.substr(0, colon));
  int number = 0;
  if (colon != std::string_view::npos) {
    std::from_chars(text.data() + colon + 1, text.data() + text.size(), number);
  }
  if (kind == kKinds.end() || number < 1) {
    throw std::invalid_argument(fmt::format("'{}' is no fault", text));
  }
  Fault fault = kind->second;
  fault.rule.first = number;
  return fault;
}

}  // namespace

std::vector<Fault> FaultsFromText(const std::string& text) {
  std::vector<Fault> faults;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('+', at), text.size());
    faults.push_back(FaultFromText(std::string_view(text).substr(at, end - at)));
    at = end + 1;
  }
  return faults;
}

Life::Life() {
  host.console.info.bottom = 3;
  host.console.on_write = [](std::string_view) {};
  host.choke.SetCallBudget(2'000'000'000);
  host.clock.SetBudget(std::chrono::years(100));
  host.clock.SetLeap(kLeap);
  host.system.module_path = InstallDirectory() / identity::kSupervisorExecutable;
  host.files.current_directory = InstallDirectory();
  host.InstallProgram(host.system.module_path);
  host.Furnish();
  host.FurnishWindows();
  const std::string core = text::WideToUtf8(identity::kCoreExecutable);
  // The installer sees to it that what it has installed outlives a power cut.
  host.installer.on_installed = [this](const simulation::SimProduct& product) {
    releases_.insert(simulation::SimInstaller::FileOf(product.package));
    host.Settle();
  };
  host.processes.SetProgram(core, [this](simulation::SimProcess& self) { RunCore(self); });
}

std::string Life::VersionOf(const fs::path& file) const {
  for (const auto& product : host.installer.products) {
    if (host.ReadFile(file) == simulation::SimInstaller::FileOf(product.package)) {
      return product.package.version;
    }
  }
  return {};
}

// A Core of a release writes its version into its version file.
void Life::RunCore(simulation::SimProcess& core) {
  core.modules = {{"C:/Windows/System32/ucrtbase.dll"}, {"C:/Windows/System32/msvcp140.dll"}};
  const std::string version =
      VersionOf(InstallDirectory() / text::WideToUtf8(identity::kCoreExecutable));
  if (version.empty()) return;
  host.PutFile(host.system.roaming_path / "VELDRAN/stats/TestNet" / install::kCoreVersionFile,
               version);
  if (const auto crash = crashing_.find(version); crash != crashing_.end()) {
    host.LivesFor(crash->second, kAccessViolation)(core);
  }
}

void Life::InstallRelease(const std::string& version) {
  host.installer.Install(
      {.product_code = "{11111111-1111-1111-1111-111111111111}", .version = version},
      InstallDirectory());
  releases_.insert(simulation::SimInstaller::FileOf({.version = version}));
  host.PutFile(host.system.roaming_path / "VELDRAN/stats/TestNet" / install::kCoreVersionFile,
               version);
}

void Life::PublishRelease(const simulation::SimPackage& package) {
  servers.PublishPackage(package);
  servers.latest_version = package.version;
}

void Life::At(Duration time, std::function<void(Life&)> happening) {
  host.clock.At(time, [this, happening = std::move(happening)] { happening(*this); });
}

void Life::KillVosk() {
  how_vosk_ended_ = "killed";
  if (vosk_runs_) host.choke.EndVosk(FaultKind::killed);
}

void Life::CutPowerAt(Duration time, AfterPowerCut unsettled) {
  At(std::max(time - kUnsettled, Duration(0)), [](Life& life) { life.host.Settle(); });
  At(time, [unsettled](Life& life) {
    life.after_power_cut_ = unsettled;
    if (life.vosk_runs_) life.host.choke.EndVosk(FaultKind::power_cut);
  });
}

void Life::SettleAgainAndAgain() {
  host.Settle();
  if (FaultWasHit()) return;
  host.clock.At(host.clock.Elapsed() + kUnsettled, [this] { SettleAgainAndAgain(); });
}

void Life::OperatorQuits() {
  quit_ = true;
  witness.OperatorQuits();
  host.KeyPressed('q');
}

void Life::OperatorChooses(int item) {
  host.KeyPressed('m');
  for (int at = 1; at < item; ++at) {
    host.KeyPressed(kArrow);
    host.KeyPressed(kDown);
  }
  host.KeyPressed(kEnter);
}

void Life::Add(const std::vector<Fault>& faults, Duration from, Duration to) {
  for (const Fault& fault : faults) {
    if (fault.rule.kind == FaultKind::power_cut) {
      after_power_cut_ = fault.after_power_cut;
      SettleAgainAndAgain();
    }
    const auto begin = [fault](Life& life) { life.host.choke.faults.Add(fault.rule); };
    from == Duration(0) ? begin(*this) : At(from, begin);
  }
  if (to != Duration::max()) At(to, [](Life& life) { life.host.choke.faults.Clear(); });
}

void Life::Run(Duration until) {
  At(until, [](Life& life) {
    life.over_ = true;
    life.vosk_runs_at_the_end_ = life.vosk_runs_;
    if (life.vosk_runs_) life.KillVosk();
  });
  while (!over_ && FindVosk()) {
    vosk_runs_ = true;
    witness.VoskBegins();
    try {
      RunVosk();
    } catch (const simulation::VoskEnded& ended) {
      vosk_runs_ = false;
      witness.VoskEnds(/*by_itself=*/false);
      if (over_) break;
      const bool power = ended.how == FaultKind::power_cut;
      how_vosk_ended_ = power ? "by a power cut" : "killed";
      if (power) witness.PowerIsGone();
      power ? host.PowerIsGone(after_power_cut_) : host.VoskIsGone(1);
      StartAgainAfter(power ? kBootTime : kTaskRestart);
    }
  }
  witness.LifeEnds(over_ && !quit_);
  host.choke.BeginAnew();
}

void Life::RunVosk() {
  int status = 0;
  std::string problem;
  try {
    status = supervisor::Supervisor(host.Bundle(), servers).Run(arguments);
  } catch (const simulation::BudgetExceeded& excess) {
    problem = "VOSK hangs: " + excess.reason;
  } catch (const std::exception& escaped) {
    problem = std::string("an exception ends VOSK: ") + escaped.what();
  }
  vosk_runs_ = false;
  how_vosk_ended_ = problem.empty() ? fmt::format("by itself, with status {}", status) : problem;
  if (!problem.empty()) witness.Break("Answers", problem);
  witness.VoskEnds(/*by_itself=*/problem.empty());
  host.VoskIsGone(static_cast<std::uint32_t>(status));
  const auto successors = host.processes.Running(identity::kSupervisorExecutable);
  if (!successors.empty()) return TakeOver(successors.front()->pid);
  if (quit_) {
    over_ = true;
  } else {
    StartAgainAfter(kRestartAfterGivingUp);
  }
}

void Life::TakeOver(platform::ProcessId successor) {
  host.VoskBegins(successor);
  host.system.module_path = InstallDirectory() / identity::kSupervisorExecutable;
}

void Life::StartAgainAfter(Duration pause) {
  host.clock.Advance(pause);
  host.VoskBegins();
}

// Returns whether the file is whole, as it was made or installed.
bool Life::IsProgram(const fs::path& file) const {
  const std::string bytes = host.ReadFile(file);
  return bytes == "MZ" || releases_.count(bytes) != 0;
}

bool Life::FindVosk() {
  for (const fs::path& path :
       {host.system.module_path, InstallDirectory() / identity::kSupervisorExecutable}) {
    if (!IsProgram(path)) continue;
    host.system.module_path = path;
    return true;
  }
  witness.Break("Startable", "no VOSK.exe is left on the disk");
  if (!put_back_after_) return false;
  host.clock.Advance(*put_back_after_);
  host.InstallProgram(host.system.module_path);
  return !over_;
}

std::string Life::EndState() {
  std::string text;
  const auto line = [&text](const std::string& what) { text += what + '\n'; };
  const auto cores = host.processes.Running(identity::kCoreExecutable);
  const auto monitors = host.processes.Running(u"procdump64.exe");
  line(fmt::format("VOSK: {}", vosk_runs_at_the_end_ ? "runs" : "ended " + how_vosk_ended_));
  line(fmt::format("Core: {} running, {} started; dump monitors: {} running", cores.size(),
                   std::ranges::count_if(host.processes.Table(),
                                         [](const auto& entry) {
                                           return entry.second.executable_name ==
                                                      identity::kCoreExecutable &&
                                                  !entry.second.command_line.empty();
                                         }),
                   monitors.size()));
  for (const auto& product : host.installer.products) {
    line(fmt::format("installed: {}", product.package.version));
  }
  for (const auto& report : servers.received) line("received: " + report.name);
  for (const std::string& name : host.NamesIn(host.DumpDirectory())) line("kept: " + name);
  for (const auto& box : host.system.boxes) line(fmt::format("box: {}: {}", box.title, box.text));
  for (const BrokenPromise& broken : witness.Broken()) {
    line(fmt::format("BROKEN: {}: {}", broken.promise, broken.how));
  }
  if (witness.Broken().empty()) line("every promise was kept");
  return text;
}

}  // namespace vosk::rehearsal
