#include "simulation/simulated_host.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "identity.h"
#include "text/utf.h"

namespace vosk::simulation {

namespace fs = std::filesystem;
using platform::ProcessId;

namespace {

// Made in memory if the machine offers that: sweeps make thousands of these.
fs::path MakeTemporaryDirectory() {
  const fs::path in_memory = "/dev/shm";
  const bool usable = ::access(in_memory.c_str(), W_OK) == 0;
  std::string name = ((usable ? in_memory : fs::temp_directory_path()) / "vosk-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
  return name;
}

// Returns the text between the last two double quotes.
std::string LastQuoted(const std::string& command_line) {
  const std::size_t end = command_line.rfind('"');
  if (end == std::string::npos || end == 0) return {};
  const std::size_t begin = command_line.rfind('"', end - 1);
  return begin == std::string::npos ? "" : command_line.substr(begin + 1, end - begin - 1);
}

}  // namespace

SimulatedHost::SimulatedHost()
    : found_directory_(fs::current_path()), root_(MakeTemporaryDirectory()) {
  fs::current_path(root_);
  fs::create_directories(system.temp_path);
  fs::create_directories(system.roaming_path);
  InstallProgram(system.module_path);
  files.runs = [this](const fs::path& file) { return processes.RunsFrom(file); };
}

SimulatedHost::~SimulatedHost() {
  std::error_code ignored;
  fs::current_path(found_directory_, ignored);
  fs::remove_all(root_, ignored);
}

std::vector<std::string> SimulatedHost::Leftovers() const {
  std::vector<std::string> left;
  const auto check = [&left](bool in_order, std::string_view what) {
    if (!in_order) left.emplace_back(what);
  };
  check(processes.OpenHandles() == 0, "process or token handles left open");
  check(processes.OpenSnapshots() == 0, "process snapshots left open");
  check(dump_writer.OpenHandles() == 0, "dump files left open");
  check(machine.OpenParts() == 0, "graphics or network parts left open");
  check(registry.OpenHandles() == 0, "registry keys left open");
  check(installer.OpenHandles() == 0, "handles of installer databases left open");
  check(system.com_initialisations == 0, "COM is not balanced");
  check(!system.HasControlHandler(), "a handler of control events is left");
  check(console.info.attributes == kFoundAttributes,
        "the console's text attributes are not as they were found");
  check(console.SettingsAreGivenBack(),
        "the console's code page, input mode or scrolling is not as it was found");
  check(console.cursor_visible, "the cursor is left hidden");
  return left;
}

void SimulatedHost::At(Duration time, std::function<void(SimulatedHost&)> happening) {
  clock.At(time, [this, happening = std::move(happening)] { happening(*this); });
}

void SimulatedHost::InstallProgram(const fs::path& executable, Program program) {
  PutFile(executable, "MZ");
  if (program) processes.SetProgram(executable.filename().string(), std::move(program));
}

void SimulatedHost::InstallCore() {
  InstallCore(text::PathFromUtf8(identity::kDefaultTargetPath));
}

void SimulatedHost::InstallCore(const fs::path& executable, Program program) {
  InstallProgram(executable, std::move(program));
}

void SimulatedHost::InstallMonitor(MonitorBehaviour behaviour) {
  InstallProgram(system.module_path.parent_path() / "procdump64.exe",
                 [this, behaviour](SimProcess& self) { RunMonitor(self, behaviour); });
}

Program SimulatedHost::LivesFor(Duration life, std::uint32_t exit_code) {
  return [this, life, exit_code](SimProcess& self) {
    clock.After(life,
                [this, pid = self.pid, exit_code] { processes.End(processes.At(pid), exit_code); });
  };
}

void SimulatedHost::PutFile(const fs::path& path, const std::string& bytes) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
  files.Stamp(path);
}

void SimulatedHost::Furnish(MonitorBehaviour monitor) {
  InstallCore();
  InstallMonitor(monitor);
  PutFile(system.roaming_path / "VELDRAN" / "stats" / "TestNet" / "core.log", "node started\n");
}

void SimulatedHost::FurnishWindows() {
  const std::string windows = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)";
  registry.PutText(windows, "ProductName", "Windows 11 Pro");
  registry.PutText(windows, "DisplayVersion", "23H2");
  registry.PutText(windows, "CurrentBuildNumber", "22631");
  registry.PutNumber(windows, "UBR", 3155);
  registry.PutText(R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)", "ProcessorNameString",
                   "AMD Ryzen 7 5800X 8-Core Processor");
  const std::string dot_net = R"(SOFTWARE\Microsoft\NET Framework Setup\NDP\v4\Full)";
  registry.PutNumber(dot_net, "Install", 1);
  registry.PutNumber(dot_net, "Release", 533320);
  for (const char* name : {"ucrtbase.dll", "msvcp140.dll"}) {
    const fs::path path = machine.system_directory / name;
    PutFile(path, "MZ");
    machine.file_versions[path] = {14, 38, 33135, 0};
  }
}

void SimulatedHost::FailNext(std::string operation, std::uint32_t code, int times) {
  choke.faults.Add({.scope = std::move(operation), .count = times, .code = code});
}

void SimulatedHost::CoreExits(std::uint32_t exit_code) {
  const auto cores = processes.Running(identity::kCoreExecutable);
  if (!cores.empty()) processes.End(*cores.back(), exit_code);
}

void SimulatedHost::DumpAppears(const std::string& name, const std::string& bytes) {
  PutFile(DumpDirectory() / name, bytes);
}

void SimulatedHost::VoskIsGone(std::uint32_t exit_code) {
  choke.BeginAnew();
  processes.EndOwn(exit_code);
  system.com_initialisations = 0;
  system.ForgetControlHandler();
  console.Close();
}

void SimulatedHost::PowerIsGone(AfterPowerCut unsettled) {
  choke.BeginAnew();
  processes.EndAll();
  clock.PowerIsGone();
  system.com_initialisations = 0;
  system.ForgetControlHandler();
  console.Close();
  if (unsettled != AfterPowerCut::whole) Damage(unsettled);
  for (const auto& [from, to] : std::exchange(files.renames_at_boot, {})) {
    std::error_code ignored;
    if (!fs::exists(fs::symlink_status(to, ignored))) fs::rename(from, to, ignored);
  }
}

void SimulatedHost::Damage(AfterPowerCut unsettled) {
  for (const auto& [path, state] : Survey()) {
    if (files.IsFlushed(path)) continue;
    // By whatever name it was known when it settled.
    if (std::ranges::find(settled_, state, &FileStates::value_type::second) != settled_.end()) {
      continue;
    }
    if (path.filename() == identity::kLogFileName) continue;  // loses lines at its end at most
    fs::resize_file(path, unsettled == AfterPowerCut::empty ? 0 : state.first / 2);
  }
}

void SimulatedHost::Settle() {
  settled_ = Survey();
}

void SimulatedHost::VoskBegins(ProcessId pid) {
  processes.BeginOwn(pid);
}

SimulatedHost::FileStates SimulatedHost::Survey() const {
  FileStates states;
  for (const auto& entry : fs::recursive_directory_iterator(root_)) {
    if (!entry.is_regular_file()) continue;
    struct stat status {};
    if (::lstat(entry.path().c_str(), &status) != 0) continue;
    // A file written anew has another inode or time of its last write; which of them does not
    // matter. A new name changes neither.
    const auto version = static_cast<std::uint64_t>(status.st_ino) * 1'000'003 +
                         static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1'000'000'007 +
                         static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
    states[entry.path()] = {entry.file_size(), version};
  }
  return states;
}

std::string SimulatedHost::ReadFile(const fs::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

fs::path SimulatedHost::DumpDirectory() const {
  return system.temp_path / identity::kDumpStorageName;
}

fs::path SimulatedHost::LogFile() const {
  return system.temp_path / identity::kLogFileName;
}

std::vector<std::string> SimulatedHost::NamesIn(const fs::path& directory) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(directory, ignored)) {
    names.push_back(entry.path().filename().string());
  }
  std::ranges::sort(names);
  return names;
}

// A process has one debugger at a time.
bool SimulatedHost::AttachDebugger(ProcessId debugger, ProcessId target_pid) {
  if (processes.Table().count(target_pid) == 0) return false;
  SimProcess& target = processes.At(target_pid);
  if (!target.running) return false;
  if (target.debugger != 0 && processes.At(target.debugger).running) return false;
  target.debugger = debugger;
  return true;
}

// Attaches to the process on the command line, writes dumps if it dies of an exception, and ends
// with it.
void SimulatedHost::RunMonitor(SimProcess& self, const MonitorBehaviour& behaviour) {
  ProcessId target_pid = 0;
  const std::size_t option = self.command_line.find(" -e ");
  if (option != std::string::npos) {
    std::sscanf(self.command_line.c_str() + option, " -e %u", &target_pid);
  }
  if (behaviour.leaves_at_once || !AttachDebugger(self.pid, target_pid)) {
    clock.After(Duration(50), [this, pid = self.pid] { processes.End(processes.At(pid), 1); });
    return;
  }
  const std::string directory = LastQuoted(self.command_line);
  processes.At(target_pid).on_end.push_back([=, this, pid = self.pid] {
    SimProcess& monitor = processes.At(pid);
    if (!monitor.running) return;
    const bool crashed = processes.At(target_pid).exit_code >= behaviour.smallest_exception;
    clock.After(crashed ? behaviour.writing_time : Duration(20), [=, this] {
      if (!processes.At(pid).running) return;  // ended before it was done
      if (crashed) WriteCrashDumps(directory, behaviour);
      processes.End(processes.At(pid), 0);
    });
  });
}

void SimulatedHost::WriteCrashDumps(const std::string& directory,
                                    const MonitorBehaviour& behaviour) {
  const std::string stem = fmt::format(
      "{}_{:%y%m%d_%H%M%S}", text::WideToUtf8(identity::kCoreExecutable), clock.LocalNow());
  for (int n = 0; n < behaviour.dumps_per_crash; ++n) {
    const std::string name = n == 0 ? stem + ".dmp" : fmt::format("{}-{}.dmp", stem, n);
    const fs::path path = text::PathFromUtf8(directory) / name;
    PutFile(path, dumps.Write(path, behaviour.dump_size));
  }
}

}  // namespace vosk::simulation
