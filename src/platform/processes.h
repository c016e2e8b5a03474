#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/types.h"

namespace vosk::platform {

// Rights asked for when a process is opened.
namespace access {
inline constexpr std::uint32_t kTerminate = 0x0001;
inline constexpr std::uint32_t kReadMemory = 0x0010;
inline constexpr std::uint32_t kDuplicateHandles = 0x0040;
inline constexpr std::uint32_t kQueryInformation = 0x0400;
inline constexpr std::uint32_t kQueryLimitedInformation = 0x1000;
inline constexpr std::uint32_t kSynchronize = 0x0010'0000;
}  // namespace access

// Rights asked for when a process token is opened.
inline constexpr std::uint32_t kTokenQuery = 0x0008;
inline constexpr std::uint32_t kTokenAdjustPrivileges = 0x0020;

// The exit code of a process that has not ended yet (or that ended with this very number).
inline constexpr std::uint32_t kStillActive = 259;

struct ProcessEntry {
  ProcessId pid = 0;
  std::u16string executable_name;  // file name only
};

// A snapshot of the process list, walked from its start. After the last entry both calls return
// kNoMoreFiles.
class ProcessSnapshot {
 public:
  virtual ~ProcessSnapshot() = default;
  virtual Result<ProcessEntry> First() = 0;
  virtual Result<ProcessEntry> Next() = 0;
};

enum class ConsoleOfChild { inherited, new_console, no_window };

struct ProcessStart {
  std::string command_line;                                     // UTF-8, used unchanged
  std::optional<std::filesystem::path> working_directory = {};  // none: the caller's own
  ConsoleOfChild console = ConsoleOfChild::inherited;
};

struct StartedProcess {
  ProcessHandle handle;
  ProcessId pid = 0;
};

// A module loaded in a process, by its address there.
using ModuleId = std::uintptr_t;

enum class WaitOutcome { finished, timed_out };

// The outcome of a request to enable a privilege: the call's own result and the last error after
// it, which are judged separately.
struct PrivilegeAdjustment {
  bool accepted = false;
  ErrorCode last_error;
};

class Processes : public HandleCloser {
 public:
  virtual Result<ProcessHandle> Open(std::uint32_t access_mask, ProcessId pid) = 0;
  // Handles are not inherited; the environment is. The child's thread handle is closed here.
  virtual Result<StartedProcess> Start(const ProcessStart& start) = 0;
  // Starts a program on the system's search path with administrator rights and without a window.
  // The user may be asked; the error is kCancelled if the user refuses.
  virtual Result<ProcessHandle> StartElevated(const std::string& program,
                                              const std::string& arguments) = 0;
  virtual Result<std::uint32_t> ExitCode(const ProcessHandle& process) = 0;
  virtual Result<ProcessId> Id(const ProcessHandle& process) = 0;
  // By the wall clock of that moment.
  virtual Result<std::chrono::system_clock::time_point> StartTime(const ProcessHandle& process) = 0;
  virtual Result<> Terminate(const ProcessHandle& process, std::uint32_t exit_code) = 0;
  virtual Result<WaitOutcome> WaitFor(const ProcessHandle& process,
                                      std::chrono::milliseconds limit) = 0;
  virtual Result<std::unique_ptr<ProcessSnapshot>> TakeSnapshot() = 0;
  // These need a handle with the rights to query information and read memory. ModulePath fails if
  // the module was unloaded after it was listed.
  virtual Result<std::vector<ModuleId>> Modules(const ProcessHandle& process) = 0;
  virtual Result<std::filesystem::path> ModulePath(const ProcessHandle& process,
                                                   ModuleId module) = 0;
  virtual ProcessId OwnId() = 0;
  // Runs one command line in the system's command interpreter and waits for it; returns its exit
  // status.
  virtual int RunShellCommand(const std::string& command) = 0;

  virtual Result<TokenHandle> OpenOwnToken(std::uint32_t access_mask) = 0;
  // Returns the system's local number of a privilege such as "SeDebugPrivilege".
  virtual Result<std::uint64_t> LookUpPrivilege(const std::string& name) = 0;
  virtual PrivilegeAdjustment EnablePrivilege(const TokenHandle& token,
                                              std::uint64_t privilege) = 0;
};

}  // namespace vosk::platform
