#include "simulation/processes.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "identity.h"
#include "text/utf.h"

namespace vosk::simulation {

using platform::ErrorCode;
using platform::ProcessHandle;
using platform::ProcessId;
using platform::Result;
namespace access = platform::access;

namespace {

constexpr ErrorCode kDirectoryNameInvalid{267};
constexpr std::uint32_t kAllRights = 0x001F'FFFF;
constexpr std::uint32_t kAnyQuery = access::kQueryInformation | access::kQueryLimitedInformation;
constexpr std::uint64_t kDebugPrivilege = 20;
constexpr ProcessId kSystemPid = 4;
constexpr platform::ModuleId kFirstModule = 0x7ff6'0000'0000;

bool IsFile(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(text::PathFromUtf8(path), ignored);
}

// Returns 0 if there is no such file.
std::uint64_t InodeOf(const std::filesystem::path& file) {
  struct stat status {};
  return ::stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

// Returns the executable that a command line names: up to the closing quote, or else the shortest
// run of words that is a file.
std::optional<std::string> ExecutableOf(const std::string& command_line) {
  if (command_line.starts_with('"')) {
    const std::string quoted = command_line.substr(1, command_line.find('"', 1) - 1);
    return IsFile(quoted) ? std::optional(quoted) : std::nullopt;
  }
  for (std::size_t end = 0; end != std::string::npos;) {
    end = command_line.find(' ', end == 0 ? 0 : end + 1);
    std::string candidate = command_line.substr(0, end);
    for (const char* ending : {"", ".exe"}) {
      if (IsFile(candidate + ending)) return candidate + ending;
    }
  }
  return std::nullopt;
}

}  // namespace

class SimSnapshot : public platform::ProcessSnapshot {
 public:
  SimSnapshot(SimProcesses& processes, std::vector<platform::ProcessEntry> entries)
      : processes_(processes), entries_(std::move(entries)) {
    ++processes_.open_snapshots_;
  }
  ~SimSnapshot() override { --processes_.open_snapshots_; }

  Result<platform::ProcessEntry> First() override {
    at_ = 0;
    return Give("processes.Snapshot.First");
  }
  Result<platform::ProcessEntry> Next() override { return Give("processes.Snapshot.Next"); }

 private:
  Result<platform::ProcessEntry> Give(std::string_view operation) {
    return processes_.choke_.Perform(operation, {}, [&]() -> Result<platform::ProcessEntry> {
      if (at_ >= entries_.size()) return tl::unexpected(platform::kNoMoreFiles);
      return entries_[at_++];
    });
  }

  SimProcesses& processes_;
  std::vector<platform::ProcessEntry> entries_;
  std::size_t at_ = 0;
};

SimProcesses::SimProcesses(ChokePoint& choke, SimClock& clock) : choke_(choke), clock_(clock) {
  SimProcess system{.pid = kSystemPid, .executable_name = u"System"};
  system.open_error = platform::kAccessDenied;
  table_.emplace(kSystemPid, std::move(system));
  own_pid_ = Add(std::u16string(identity::kSupervisorExecutable)).pid;
}

SimProcess& SimProcesses::Add(std::u16string executable_name, std::string command_line) {
  const ProcessId pid = next_pid_;
  next_pid_ += 4;
  if (forgets_the_ended) ForgetTheEnded();
  SimProcess process{.pid = pid,
                     .executable_name = std::move(executable_name),
                     .started = clock_.MachineTime(),
                     .command_line = std::move(command_line)};
  SimProcess& added = table_.emplace(pid, std::move(process)).first->second;
  clock_.Wake();
  if (on_change) on_change(added);
  return added;
}

void SimProcesses::ForgetTheEnded() {
  constexpr ProcessId kRemembered = 400;
  std::erase_if(table_, [this](const auto& entry) {
    const SimProcess& process = entry.second;
    return !process.running && process.open_handles == 0 && process.pid + kRemembered < next_pid_;
  });
}

void SimProcesses::BeginOwn(ProcessId pid) {
  own_pid_ = pid != 0 ? pid : Add(std::u16string(identity::kSupervisorExecutable)).pid;
}

void SimProcesses::EndAll() {
  for (auto& [pid, process] : table_) {
    if (pid == kSystemPid || !process.running) continue;
    process.running = false;
    process.exit_code = 1;
    process.on_end.clear();
    if (on_change) on_change(process);
  }
}

void SimProcesses::SetProgram(const std::string& file_name, Program program) {
  programs_[text::ToLowerAscii(file_name)] = std::move(program);
}

void SimProcesses::End(SimProcess& process, std::uint32_t exit_code) {
  if (!process.running) return;
  process.running = false;
  process.exit_code = exit_code;
  if (on_change) on_change(process);
  for (const auto& hook : process.on_end) hook();
}

std::vector<SimProcess*> SimProcesses::Running(std::u16string_view executable_name) {
  std::vector<SimProcess*> found;
  for (auto& [pid, process] : table_) {
    if (process.running && process.executable_name == executable_name) found.push_back(&process);
  }
  return found;
}

bool SimProcesses::RunsFrom(const std::filesystem::path& file) const {
  const std::uint64_t inode = InodeOf(file);
  return inode != 0 && std::ranges::any_of(table_, [inode](const auto& entry) {
           return entry.second.running && entry.second.image == inode;
         });
}

platform::HandleValue SimProcesses::NewHandle(ProcessId pid, std::uint32_t rights) {
  const platform::HandleValue value = next_handle_;
  next_handle_ += 4;
  handles_.emplace(value, OpenHandle{pid, rights});
  if (pid != 0) ++table_.at(pid).open_handles;
  return value;
}

void SimProcesses::CloseHandleValue(platform::HandleValue value) {
  choke_.Note("processes.Close", Subject(value));
  const auto handle = handles_.find(value);
  if (handle == handles_.end()) return;
  if (handle->second.pid != 0) --table_.at(handle->second.pid).open_handles;
  handles_.erase(handle);
}

std::string SimProcesses::Subject(platform::HandleValue value) const {
  const auto handle = handles_.find(value);
  return handle == handles_.end() ? "no handle" : fmt::format("{}", handle->second.pid);
}

Result<SimProcess*> SimProcesses::Reach(const ProcessHandle& process, std::uint32_t any_right) {
  const auto handle = handles_.find(process.Value());
  if (handle == handles_.end()) return tl::unexpected(platform::kInvalidHandle);
  if ((handle->second.rights & any_right) == 0) return tl::unexpected(platform::kAccessDenied);
  return &table_.at(handle->second.pid);
}

Result<ProcessHandle> SimProcesses::Open(std::uint32_t access_mask, ProcessId pid) {
  const std::string subject = fmt::format("{} {:#x}", pid, access_mask);
  return choke_.Perform("processes.Open", subject, [&]() -> Result<ProcessHandle> {
    const auto process = table_.find(pid);
    // An ended process exists as long as anybody holds a handle of it.
    if (process == table_.end() ||
        (!process->second.running && process->second.open_handles == 0)) {
      return tl::unexpected(platform::kInvalidParameter);
    }
    if (process->second.open_error) return tl::unexpected(*process->second.open_error);
    return ProcessHandle(NewHandle(pid, access_mask), *this);
  });
}

Result<platform::StartedProcess> SimProcesses::Start(const platform::ProcessStart& start) {
  const auto effect = [&]() -> Result<platform::StartedProcess> {
    const auto executable = ExecutableOf(start.command_line);
    if (!executable) return tl::unexpected(platform::kFileNotFound);
    const auto image = text::PathFromUtf8(*executable);
    // "MZ" stands for a whole program here.
    if (std::filesystem::file_size(image) < 2) return tl::unexpected(platform::kBadExecutable);
    if (start.working_directory && !std::filesystem::is_directory(*start.working_directory)) {
      return tl::unexpected(kDirectoryNameInvalid);
    }
    const std::string file_name = image.filename().string();
    SimProcess& process = Add(text::Utf8ToUtf16(file_name), start.command_line);
    process.image = InodeOf(image);
    process.working_directory = start.working_directory;
    process.console = start.console;
    platform::StartedProcess started{ProcessHandle(NewHandle(process.pid, kAllRights), *this),
                                     process.pid};
    const auto program = programs_.find(text::ToLowerAscii(file_name));
    if (program != programs_.end()) program->second(process);
    return started;
  };
  return choke_.Perform("processes.Start", start.command_line, effect);
}

Result<ProcessHandle> SimProcesses::StartElevated(const std::string& program,
                                                  const std::string& arguments) {
  const std::string command_line = program + ' ' + arguments;
  return choke_.Perform("processes.StartElevated", command_line, [&]() -> Result<ProcessHandle> {
    const auto found = programs_.find(text::ToLowerAscii(program));
    if (found == programs_.end()) return tl::unexpected(platform::kFileNotFound);
    SimProcess& process = Add(text::Utf8ToUtf16(program), command_line);
    ProcessHandle handle(NewHandle(process.pid, kAllRights), *this);
    found->second(process);
    return handle;
  });
}

Result<std::uint32_t> SimProcesses::ExitCode(const ProcessHandle& process) {
  return choke_.Perform("processes.ExitCode", Subject(process.Value()), [&] {
    return Reach(process, kAnyQuery).map([](SimProcess* found) { return found->exit_code; });
  });
}

Result<ProcessId> SimProcesses::Id(const ProcessHandle& process) {
  return choke_.Perform("processes.Id", Subject(process.Value()), [&] {
    return Reach(process, kAnyQuery).map([](SimProcess* found) { return found->pid; });
  });
}

Result<std::chrono::system_clock::time_point> SimProcesses::StartTime(
    const ProcessHandle& process) {
  return choke_.Perform("processes.StartTime", Subject(process.Value()), [&] {
    return Reach(process, kAnyQuery).map([](SimProcess* found) { return found->started; });
  });
}

Result<> SimProcesses::Terminate(const ProcessHandle& process, std::uint32_t exit_code) {
  const std::string subject = fmt::format("{} with {}", Subject(process.Value()), exit_code);
  return choke_.Perform("processes.Terminate", subject, [&]() -> Result<> {
    const auto target = Reach(process, access::kTerminate);
    if (!target) return tl::unexpected(target.error());
    SimProcess& found = **target;
    if (!found.running || found.on_terminate == OnTerminate::access_denied) {
      return tl::unexpected(platform::kAccessDenied);
    }
    if (found.on_terminate == OnTerminate::dies) End(found, exit_code);
    if (found.on_terminate == OnTerminate::dies_late) {
      clock_.After(found.dies_after,
                   [this, pid = found.pid, exit_code] { End(At(pid), exit_code); });
    }
    return {};
  });
}

Result<platform::WaitOutcome> SimProcesses::WaitFor(const ProcessHandle& process,
                                                    std::chrono::milliseconds limit) {
  const std::string subject = fmt::format("{} for {}ms", Subject(process.Value()), limit.count());
  return choke_.Perform("processes.WaitFor", subject, [&]() -> Result<platform::WaitOutcome> {
    const auto target = Reach(process, access::kSynchronize);
    if (!target) return tl::unexpected(target.error());
    const auto ended = [&] { return !(*target)->running; };
    clock_.Advance(limit, ended);
    return ended() ? platform::WaitOutcome::finished : platform::WaitOutcome::timed_out;
  });
}

Result<std::unique_ptr<platform::ProcessSnapshot>> SimProcesses::TakeSnapshot() {
  using Answer = Result<std::unique_ptr<platform::ProcessSnapshot>>;
  return choke_.Perform("processes.TakeSnapshot", {}, [&]() -> Answer {
    std::vector<platform::ProcessEntry> entries;
    for (const auto& [pid, process] : table_) {
      if (process.running) entries.push_back({pid, process.executable_name});
    }
    return std::make_unique<SimSnapshot>(*this, std::move(entries));
  });
}

Result<SimProcess*> SimProcesses::ReachModules(const ProcessHandle& process) {
  return Reach(process, access::kQueryInformation).and_then([&](SimProcess*) {
    return Reach(process, access::kReadMemory);
  });
}

Result<std::vector<platform::ModuleId>> SimProcesses::Modules(const ProcessHandle& process) {
  using Answer = Result<std::vector<platform::ModuleId>>;
  return choke_.Perform("processes.Modules", Subject(process.Value()), [&]() -> Answer {
    const auto target = ReachModules(process);
    if (!target) return tl::unexpected(target.error());
    if (!(*target)->running) return tl::unexpected(platform::ErrorCode{299});
    std::vector<platform::ModuleId> modules((*target)->modules.size());
    for (std::size_t i = 0; i < modules.size(); ++i) modules[i] = kFirstModule + i;
    return modules;
  });
}

Result<std::filesystem::path> SimProcesses::ModulePath(const ProcessHandle& process,
                                                       platform::ModuleId module) {
  const auto effect = [&]() -> Result<std::filesystem::path> {
    const auto target = ReachModules(process);
    if (!target) return tl::unexpected(target.error());
    const auto& modules = (*target)->modules;
    const std::size_t at = module - kFirstModule;
    if (at >= modules.size() || modules[at].unloads) {
      return tl::unexpected(platform::kInvalidHandle);
    }
    return modules[at].path;
  };
  return choke_.Perform("processes.ModulePath", Subject(process.Value()), effect);
}

ProcessId SimProcesses::OwnId() {
  choke_.Announce("processes.OwnId");
  return own_pid_;
}

int SimProcesses::RunShellCommand(const std::string& command) {
  return choke_.Perform("processes.RunShellCommand", command, [&] {
    ProcessId pid = 0;
    if (std::sscanf(command.c_str(), "taskkill /F /PID %u", &pid) != 1) return 1;
    const auto process = table_.find(pid);
    if (process == table_.end() || !process->second.running) return 128;
    if (process->second.survives_taskkill) return 1;
    End(process->second, 1);
    return 0;
  });
}

Result<platform::TokenHandle> SimProcesses::OpenOwnToken(std::uint32_t access_mask) {
  return choke_.Perform("processes.OpenOwnToken", {}, [&]() -> Result<platform::TokenHandle> {
    return platform::TokenHandle(NewHandle(0, access_mask), *this);
  });
}

Result<std::uint64_t> SimProcesses::LookUpPrivilege(const std::string& name) {
  return choke_.Perform("processes.LookUpPrivilege", name, [&]() -> Result<std::uint64_t> {
    if (name == "SeDebugPrivilege") return kDebugPrivilege;
    return tl::unexpected(ErrorCode{1313});
  });
}

platform::PrivilegeAdjustment SimProcesses::EnablePrivilege(const platform::TokenHandle& token,
                                                            std::uint64_t) {
  return choke_.Perform("processes.EnablePrivilege", {}, [&]() -> platform::PrivilegeAdjustment {
    const auto handle = handles_.find(token.Value());
    if (handle == handles_.end()) return {false, platform::kInvalidHandle};
    if ((handle->second.rights & platform::kTokenAdjustPrivileges) == 0) {
      return {false, platform::kAccessDenied};
    }
    return {true, platform::kSuccess};
  });
}

}  // namespace vosk::simulation
