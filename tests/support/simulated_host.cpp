#include "tests/support/simulated_host.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "identity.h"
#include "text/utf.h"

namespace vosk::support {

namespace fs = std::filesystem;
using platform::ProcessId;

namespace {

// In memory where the machine offers that: sweeps make thousands of these.
fs::path MakeTemporaryDirectory() {
  const fs::path in_memory = "/dev/shm";
  const bool usable = ::access(in_memory.c_str(), W_OK) == 0;
  std::string name = ((usable ? in_memory : fs::temp_directory_path()) / "vosk-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
  return name;
}

// What stands between the last two double quotes.
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
}

SimulatedHost::~SimulatedHost() {
  EXPECT_EQ(processes.OpenHandles(), 0u) << "process or token handles left open";
  EXPECT_EQ(processes.OpenSnapshots(), 0) << "process snapshots left open";
  EXPECT_EQ(dump_writer.OpenHandles(), 0u) << "dump files left open";
  EXPECT_EQ(system.com_initialisations, 0) << "COM is not balanced";
  EXPECT_EQ(console.info.attributes, kFoundAttributes)
      << "the console's text attributes are not as they were found";
  EXPECT_TRUE(console.cursor_visible) << "the cursor is left hidden";
  std::error_code ignored;
  fs::current_path(found_directory_, ignored);
  fs::remove_all(root_, ignored);
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

// Attaches to the process of the command line, writes dumps when that dies of an exception, and
// ends with it.
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
    PutFile(text::PathFromUtf8(directory) / name, DumpBytes(behaviour.dump_size));
  }
}

}  // namespace vosk::support
