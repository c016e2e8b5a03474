#include "platform/processes.h"

#include <windows.h>
// These build on windows.h.
#include <psapi.h>
#include <shellapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdlib>

#include "platform/system.h"
#include "platform/windows/error_text.h"
#include "platform/windows/file_time.h"
#include "platform/windows/parts.h"
#include "platform/windows/unique_handle.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

class WindowsSnapshot : public ProcessSnapshot {
 public:
  explicit WindowsSnapshot(SnapshotHandle handle) : handle_(std::move(handle)) {}
  Result<ProcessEntry> First() override { return Give(::Process32FirstW); }
  Result<ProcessEntry> Next() override { return Give(::Process32NextW); }

 private:
  Result<ProcessEntry> Give(BOOL (*call)(HANDLE, LPPROCESSENTRY32W)) {
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    if (!call(handle_.Get(), &entry)) return tl::unexpected(LastError());
    const std::wstring_view name(entry.szExeFile);
    return ProcessEntry{entry.th32ProcessID, std::u16string(name.begin(), name.end())};
  }

  SnapshotHandle handle_;
};

DWORD CreationFlags(ConsoleOfChild console) {
  switch (console) {
    case ConsoleOfChild::new_console:
      return CREATE_NEW_CONSOLE;
    case ConsoleOfChild::no_window:
      return CREATE_NO_WINDOW;
    case ConsoleOfChild::inherited:
      break;
  }
  return 0;
}

class WindowsProcesses : public Processes {
 public:
  Result<ProcessHandle> Open(std::uint32_t access_mask, ProcessId pid) override {
    const HANDLE process = ::OpenProcess(access_mask, FALSE, pid);
    if (process == nullptr) return tl::unexpected(LastError());
    return ProcessHandle(ValueOf(process), *this);
  }

  Result<StartedProcess> Start(const ProcessStart& start) override {
    std::wstring command_line = ToWide(start.command_line);
    std::wstring directory;
    if (start.working_directory) directory = start.working_directory->native();
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!::CreateProcessW(
            nullptr, command_line.data(), nullptr, nullptr, FALSE, CreationFlags(start.console),
            nullptr, start.working_directory ? directory.c_str() : nullptr, &startup, &started)) {
      return tl::unexpected(LastError());
    }
    const ThreadHandle thread(started.hThread);
    return StartedProcess{ProcessHandle(ValueOf(started.hProcess), *this), started.dwProcessId};
  }

  Result<ProcessHandle> StartElevated(const std::string& program,
                                      const std::string& arguments) override {
    const std::wstring file = ToWide(program);
    const std::wstring parameters = ToWide(arguments);
    SHELLEXECUTEINFOW request{};
    request.cbSize = sizeof(request);
    // The thread has no message loop, and the caller reports a failure.
    request.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
    request.lpVerb = L"runas";
    request.lpFile = file.c_str();
    request.lpParameters = parameters.c_str();
    request.nShow = SW_HIDE;
    if (!::ShellExecuteExW(&request)) return tl::unexpected(LastError());
    return ProcessHandle(ValueOf(request.hProcess), *this);
  }

  Result<std::uint32_t> ExitCode(const ProcessHandle& process) override {
    DWORD code = 0;
    if (!::GetExitCodeProcess(Raw(process), &code)) return tl::unexpected(LastError());
    return code;
  }

  Result<ProcessId> Id(const ProcessHandle& process) override {
    const DWORD pid = ::GetProcessId(Raw(process));
    if (pid == 0) return tl::unexpected(LastError());
    return pid;
  }

  Result<std::chrono::system_clock::time_point> StartTime(const ProcessHandle& process) override {
    FILETIME started{};
    FILETIME ignored{};
    if (!::GetProcessTimes(Raw(process), &started, &ignored, &ignored, &ignored)) {
      return tl::unexpected(LastError());
    }
    return SystemTimeOf(started);
  }

  Result<> Terminate(const ProcessHandle& process, std::uint32_t exit_code) override {
    if (!::TerminateProcess(Raw(process), exit_code)) return tl::unexpected(LastError());
    return {};
  }

  Result<WaitOutcome> WaitFor(const ProcessHandle& process,
                              std::chrono::milliseconds limit) override {
    const DWORD answer = ::WaitForSingleObject(Raw(process), static_cast<DWORD>(limit.count()));
    if (answer == WAIT_OBJECT_0) return WaitOutcome::finished;
    if (answer == WAIT_TIMEOUT) return WaitOutcome::timed_out;
    return tl::unexpected(LastError());
  }

  Result<std::unique_ptr<ProcessSnapshot>> TakeSnapshot() override {
    SnapshotHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return tl::unexpected(LastError());
    return std::make_unique<WindowsSnapshot>(std::move(snapshot));
  }

  Result<std::vector<ModuleId>> Modules(const ProcessHandle& process) override {
    std::vector<HMODULE> modules(256);
    for (;;) {
      const auto bytes = static_cast<DWORD>(modules.size() * sizeof(HMODULE));
      DWORD needed = 0;
      if (!::K32EnumProcessModules(Raw(process), modules.data(), bytes, &needed)) {
        return tl::unexpected(LastError());
      }
      modules.resize(needed / sizeof(HMODULE));
      if (needed <= bytes) break;
    }
    std::vector<ModuleId> ids;
    ids.reserve(modules.size());
    for (const HMODULE module : modules) ids.push_back(reinterpret_cast<ModuleId>(module));
    return ids;
  }

  Result<std::filesystem::path> ModulePath(const ProcessHandle& process, ModuleId module) override {
    // A name that fills the buffer may have been cut off.
    for (std::wstring name(kMaxPath, L'\0');; name.resize(name.size() * 2)) {
      const DWORD length =
          ::K32GetModuleFileNameExW(Raw(process), reinterpret_cast<HMODULE>(module), name.data(),
                                    static_cast<DWORD>(name.size()));
      if (length == 0) return tl::unexpected(LastError());
      if (length < name.size() - 1) return std::filesystem::path(name.substr(0, length));
    }
  }

  ProcessId OwnId() override { return ::GetCurrentProcessId(); }

  int RunShellCommand(const std::string& command) override {
    return ::_wsystem(ToWide(command).c_str());
  }

  Result<TokenHandle> OpenOwnToken(std::uint32_t access_mask) override {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), access_mask, &token)) {
      return tl::unexpected(LastError());
    }
    return TokenHandle(ValueOf(token), *this);
  }

  Result<std::uint64_t> LookUpPrivilege(const std::string& name) override {
    LUID privilege{};
    if (!::LookupPrivilegeValueW(nullptr, ToWide(name).c_str(), &privilege)) {
      return tl::unexpected(LastError());
    }
    return std::uint64_t{static_cast<std::uint32_t>(privilege.HighPart)} << 32 | privilege.LowPart;
  }

  PrivilegeAdjustment EnablePrivilege(const TokenHandle& token, std::uint64_t privilege) override {
    TOKEN_PRIVILEGES wanted{};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Luid = {static_cast<DWORD>(privilege), static_cast<LONG>(privilege >> 32)};
    wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    // The call does not set the last error if every privilege was enabled.
    ::SetLastError(ERROR_SUCCESS);
    const BOOL accepted = ::AdjustTokenPrivileges(Raw(token), FALSE, &wanted, 0, nullptr, nullptr);
    return {accepted != FALSE, LastError()};
  }

  void CloseHandleValue(HandleValue value) override {
    ::CloseHandle(reinterpret_cast<HANDLE>(value));
  }
};

}  // namespace

std::unique_ptr<Processes> MakeProcesses() {
  return std::make_unique<WindowsProcesses>();
}

}  // namespace vosk::platform::windows
