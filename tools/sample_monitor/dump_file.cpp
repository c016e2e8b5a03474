#include "dump_file.h"

#include <dbghelp.h>

#include <cstdio>
#include <ctime>

namespace vosk::tools {
namespace {

std::filesystem::path DumpPath(const std::wstring& image_name, const MonitorOptions& options) {
  const std::time_t now = std::time(nullptr);
  wchar_t stamp[32] = L"";
  std::wcsftime(stamp, std::size(stamp), L"_%y%m%d_%H%M%S.dmp", std::localtime(&now));
  return options.directory / (image_name + stamp);
}

CONTEXT ContextOf(DWORD thread_id) {
  CONTEXT context{};
  context.ContextFlags = CONTEXT_ALL;
  const HANDLE thread = OpenThread(THREAD_GET_CONTEXT, FALSE, thread_id);
  if (thread == nullptr) return context;
  GetThreadContext(thread, &context);
  CloseHandle(thread);
  return context;
}

}  // namespace

bool WriteDump(HANDLE process, const std::wstring& image_name, StoppedThread thread,
               const MonitorOptions& options) {
  const std::filesystem::path path = DumpPath(image_name, options);
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    std::fprintf(stderr, "Cannot create the dump file: error %lu\n", GetLastError());
    return false;
  }
  CONTEXT context = ContextOf(thread.id);
  EXCEPTION_POINTERS pointers{&thread.exception, &context};
  // The pointers are valid in this process, not in the target.
  MINIDUMP_EXCEPTION_INFORMATION information{thread.id, &pointers, FALSE};
  const BOOL written =
      MiniDumpWriteDump(process, options.pid, file, static_cast<MINIDUMP_TYPE>(options.dump_type),
                        &information, nullptr, nullptr);
  const DWORD error = GetLastError();
  CloseHandle(file);
  if (!written) {
    std::fprintf(stderr, "Writing the dump failed: error 0x%08lX\n", error);
    return false;
  }
  std::printf("Dump written: %ls\n", path.c_str());
  return true;
}

}  // namespace vosk::tools
