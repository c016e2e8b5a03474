#include "platform/dump_writer.h"

#include <windows.h>
// dbghelp.h builds on windows.h.
#include <dbghelp.h>

#include "platform/windows/error_text.h"
#include "platform/windows/parts.h"
#include "platform/windows/unique_handle.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

class WindowsDumpWriter : public DumpWriter {
 public:
  Result<DumpFileHandle> CreateDumpFile(const std::filesystem::path& path) override {
    const HANDLE file = ::CreateFileW(SystemPath(path).c_str(), GENERIC_WRITE, 0, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return tl::unexpected(LastError());
    return DumpFileHandle(ValueOf(file), *this);
  }

  Result<> WriteDump(const ProcessHandle& process, ProcessId pid, const DumpFileHandle& file,
                     std::uint32_t dump_type) override {
    if (!::MiniDumpWriteDump(Raw(process), pid, Raw(file), static_cast<MINIDUMP_TYPE>(dump_type),
                             nullptr, nullptr, nullptr)) {
      return tl::unexpected(LastError());
    }
    return {};
  }

  void CloseHandleValue(HandleValue value) override {
    ::CloseHandle(reinterpret_cast<HANDLE>(value));
  }
};

}  // namespace

std::unique_ptr<DumpWriter> MakeDumpWriter() {
  return std::make_unique<WindowsDumpWriter>();
}

}  // namespace vosk::platform::windows
