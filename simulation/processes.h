// The process table of the simulated system.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/processes.h"
#include "simulation/choke_point.h"
#include "simulation/clock.h"

namespace vosk::simulation {

enum class OnTerminate { dies, dies_late, access_denied, ignores };

struct SimModule {
  std::filesystem::path path;
  bool unloads = false;  // as soon as it is listed
};

struct SimProcess {
  platform::ProcessId pid = 0;
  std::u16string executable_name;
  std::chrono::system_clock::time_point started = {};
  // How it was started; empty for what ran before.
  std::string command_line = {};
  std::optional<std::filesystem::path> working_directory = {};
  platform::ConsoleOfChild console = platform::ConsoleOfChild::inherited;

  OnTerminate on_terminate = OnTerminate::dies;
  Duration dies_after{8'000};  // if it dies late
  bool survives_taskkill = false;
  std::optional<platform::ErrorCode> open_error = {};  // for everybody who opens it

  std::vector<SimModule> modules = {};
  platform::ProcessId debugger = 0;
  std::uint64_t image = 0;  // its executable's inode, even if that was renamed meanwhile

  bool running = true;
  std::uint32_t exit_code = platform::kStillActive;
  int open_handles = 0;
  std::vector<std::function<void()>> on_end = {};
};

// The actions of a program when it is started: it may schedule its own end, watch others, write
// files.
using Program = std::function<void(SimProcess& self)>;

class SimProcesses : public platform::Processes {
 public:
  SimProcesses(ChokePoint& choke, SimClock& clock);

  platform::Result<platform::ProcessHandle> Open(std::uint32_t access_mask,
                                                 platform::ProcessId pid) override;
  platform::Result<platform::StartedProcess> Start(const platform::ProcessStart& start) override;
  platform::Result<platform::ProcessHandle> StartElevated(const std::string& program,
                                                          const std::string& arguments) override;
  platform::Result<std::uint32_t> ExitCode(const platform::ProcessHandle& process) override;
  platform::Result<platform::ProcessId> Id(const platform::ProcessHandle& process) override;
  platform::Result<std::chrono::system_clock::time_point> StartTime(
      const platform::ProcessHandle& process) override;
  platform::Result<> Terminate(const platform::ProcessHandle& process,
                               std::uint32_t exit_code) override;
  platform::Result<platform::WaitOutcome> WaitFor(const platform::ProcessHandle& process,
                                                  std::chrono::milliseconds limit) override;
  platform::Result<std::unique_ptr<platform::ProcessSnapshot>> TakeSnapshot() override;
  platform::Result<std::vector<platform::ModuleId>> Modules(
      const platform::ProcessHandle& process) override;
  platform::Result<std::filesystem::path> ModulePath(const platform::ProcessHandle& process,
                                                     platform::ModuleId module) override;
  platform::ProcessId OwnId() override;
  int RunShellCommand(const std::string& command) override;
  platform::Result<platform::TokenHandle> OpenOwnToken(std::uint32_t access_mask) override;
  platform::Result<std::uint64_t> LookUpPrivilege(const std::string& name) override;
  platform::PrivilegeAdjustment EnablePrivilege(const platform::TokenHandle& token,
                                                std::uint64_t privilege) override;
  void CloseHandleValue(platform::HandleValue value) override;

  // Adds a process; without a command line, somebody else started it.
  SimProcess& Add(std::u16string executable_name, std::string command_line = {});
  // Sets what runs when the executable of that file name is started. Without a program it runs
  // until somebody ends it. The executable's file has to exist as well, unless the program is
  // started elevated.
  void SetProgram(const std::string& file_name, Program program);
  void End(SimProcess& process, std::uint32_t exit_code);
  // Cuts the power: everything ends without notice.
  void EndAll();
  // Ends VOSK and closes its handles. The next VOSK is this process, or a new one.
  void EndOwn(std::uint32_t exit_code) { End(At(own_pid_), exit_code); }
  void BeginOwn(platform::ProcessId pid = 0);
  // Returns whether a running process was started from this file.
  [[nodiscard]] bool RunsFrom(const std::filesystem::path& file) const;
  // Called when a process has started or ended.
  std::function<void(const SimProcess&)> on_change;
  // If set, processes that ended long ago are forgotten, for lives of years.
  bool forgets_the_ended = false;
  [[nodiscard]] SimProcess& At(platform::ProcessId pid) { return table_.at(pid); }
  // Returns the running processes of that executable, by ascending PID.
  [[nodiscard]] std::vector<SimProcess*> Running(std::u16string_view executable_name);
  // Returns every process ever, by ascending PID; PIDs are not used again.
  [[nodiscard]] const std::map<platform::ProcessId, SimProcess>& Table() const { return table_; }
  [[nodiscard]] std::size_t OpenHandles() const { return handles_.size(); }
  [[nodiscard]] int OpenSnapshots() const { return open_snapshots_; }
  // Returns the process behind a handle, or an error if the handle lacks the rights; one of
  // `any_right` is enough.
  platform::Result<SimProcess*> Reach(const platform::ProcessHandle& process,
                                      std::uint32_t any_right);

 private:
  friend class SimSnapshot;
  void ForgetTheEnded();
  platform::Result<SimProcess*> ReachModules(const platform::ProcessHandle& process);
  struct OpenHandle {
    platform::ProcessId pid = 0;  // 0: VOSK's own token
    std::uint32_t rights = 0;
  };
  platform::HandleValue NewHandle(platform::ProcessId pid, std::uint32_t rights);
  [[nodiscard]] std::string Subject(platform::HandleValue value) const;

  ChokePoint& choke_;
  SimClock& clock_;
  std::map<platform::ProcessId, SimProcess> table_;
  std::map<std::string, Program> programs_;
  std::map<platform::HandleValue, OpenHandle> handles_;
  platform::HandleValue next_handle_ = 0x100;
  platform::ProcessId next_pid_ = 1000;
  platform::ProcessId own_pid_ = 0;
  int open_snapshots_ = 0;
};

}  // namespace vosk::simulation
