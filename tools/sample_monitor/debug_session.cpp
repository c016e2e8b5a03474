#include "debug_session.h"

#include <windows.h>

#include <cstdio>
#include <string>

#include "dump_file.h"

namespace vosk::tools {
namespace {

void CloseIfOpen(HANDLE file) {
  if (file != nullptr) CloseHandle(file);
}

class DebugSession {
 public:
  explicit DebugSession(const MonitorOptions& options) : options_(options) {}
  DebugSession(const DebugSession&) = delete;
  DebugSession& operator=(const DebugSession&) = delete;

  int Run();

 private:
  DWORD Judge(const DEBUG_EVENT& event);
  DWORD JudgeException(const DEBUG_EVENT& event);
  void Capture(const StoppedThread& thread);
  std::wstring ImageName() const;

  const MonitorOptions& options_;
  HANDLE process_ = nullptr;  // owned by the debugging interface
  bool attached_ = false;
  bool failed_ = false;
};

int DebugSession::Run() {
  DEBUG_EVENT event{};
  while (WaitForDebugEvent(&event, INFINITE)) {
    const DWORD verdict = Judge(event);
    ContinueDebugEvent(event.dwProcessId, event.dwThreadId, verdict);
    if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) return failed_ ? 1 : 0;
  }
  std::fprintf(stderr, "Waiting for the process failed: error %lu\n", GetLastError());
  return 1;
}

DWORD DebugSession::Judge(const DEBUG_EVENT& event) {
  switch (event.dwDebugEventCode) {
    case CREATE_PROCESS_DEBUG_EVENT:
      process_ = event.u.CreateProcessInfo.hProcess;
      CloseIfOpen(event.u.CreateProcessInfo.hFile);
      break;
    case LOAD_DLL_DEBUG_EVENT:
      CloseIfOpen(event.u.LoadDll.hFile);
      break;
    case EXCEPTION_DEBUG_EVENT:
      return JudgeException(event);
    default:
      break;
  }
  return DBG_CONTINUE;
}

DWORD DebugSession::JudgeException(const DEBUG_EVENT& event) {
  const EXCEPTION_DEBUG_INFO& info = event.u.Exception;
  // The system itself raises one breakpoint in every process that a debugger attaches to.
  const bool breakpoint = info.ExceptionRecord.ExceptionCode == EXCEPTION_BREAKPOINT;
  if (breakpoint && !attached_) {
    attached_ = true;
    return DBG_CONTINUE;
  }
  // Only the second chance is a crash: at the first the process may still handle it itself.
  if (info.dwFirstChance == 0) Capture({event.dwThreadId, info.ExceptionRecord});
  return DBG_EXCEPTION_NOT_HANDLED;
}

void DebugSession::Capture(const StoppedThread& thread) {
  std::printf("Unhandled exception 0x%08lX in thread %lu\n", thread.exception.ExceptionCode,
              thread.id);
  if (!WriteDump(process_, ImageName(), thread, options_)) failed_ = true;
}

std::wstring DebugSession::ImageName() const {
  wchar_t path[MAX_PATH] = L"";
  DWORD length = MAX_PATH;
  if (!QueryFullProcessImageNameW(process_, 0, path, &length)) return L"process";
  return std::filesystem::path(path).filename().wstring();
}

}  // namespace

int WatchUntilEnd(const MonitorOptions& options) {
  if (!DebugActiveProcess(options.pid)) {
    std::fprintf(stderr, "Cannot attach to process %lu: error %lu\n", options.pid, GetLastError());
    return 1;
  }
  // Ending the monitor must leave the target alive.
  DebugSetProcessKillOnExit(FALSE);
  std::printf("Watching process %lu, dumps of type 0x%lX go to %ls\n", options.pid,
              options.dump_type, options.directory.c_str());
  std::fflush(stdout);
  return DebugSession(options).Run();
}

}  // namespace vosk::tools
