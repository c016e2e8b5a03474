#include "platform/system.h"

#include <windows.h>
// These build on windows.h.
#include <objbase.h>
#include <shlobj.h>

#include <array>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/windows/error_text.h"
#include "platform/windows/parts.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

using PathBuffer = std::array<wchar_t, kMaxPath>;

// The system calls a bare function, and only one program stands behind it.
struct InstalledHandler {
  std::mutex in_use;
  ControlHandler handler;
};

InstalledHandler& TheHandler() {
  static InstalledHandler handler;
  return handler;
}

std::optional<ControlEvent> EventOf(DWORD type) {
  switch (type) {
    case CTRL_C_EVENT:
      return ControlEvent::interrupt;
    case CTRL_BREAK_EVENT:
      return ControlEvent::interrupt_by_break;
    case CTRL_CLOSE_EVENT:
      return ControlEvent::console_closed;
    case CTRL_LOGOFF_EVENT:
      return ControlEvent::logoff;
    case CTRL_SHUTDOWN_EVENT:
      return ControlEvent::shutdown;
    default:
      return std::nullopt;
  }
}

BOOL WINAPI OnControlEvent(DWORD type) {
  const auto event = EventOf(type);
  InstalledHandler& installed = TheHandler();
  const std::lock_guard lock(installed.in_use);
  return event && installed.handler && installed.handler(*event);
}

void Install(ControlHandler handler) {
  InstalledHandler& installed = TheHandler();
  const std::lock_guard lock(installed.in_use);
  installed.handler = std::move(handler);
}

class WindowsSystem : public System {
 public:
  Result<std::filesystem::path> TempPath() override {
    PathBuffer buffer{};
    const DWORD length = ::GetTempPathW(kMaxPath, buffer.data());
    if (length == 0 || length >= kMaxPath) return tl::unexpected(LastError());
    return std::wstring(buffer.data(), length);
  }

  Result<std::filesystem::path> ModulePath() override {
    PathBuffer buffer{};
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer.data(), kMaxPath);
    if (length == 0 || length >= kMaxPath) return tl::unexpected(LastError());
    return std::wstring(buffer.data(), length);
  }

  Result<std::filesystem::path> RoamingAppDataPath() override {
    wchar_t* folder = nullptr;
    const HRESULT answer = ::SHGetKnownFolderPath(FOLDERID_RoamingAppData, 0, nullptr, &folder);
    const std::filesystem::path path(FAILED(answer) ? L"" : folder);
    ::CoTaskMemFree(folder);
    if (FAILED(answer)) return tl::unexpected(ErrorCode{static_cast<std::uint32_t>(answer)});
    return path;
  }

  Result<std::string> ComputerName() override {
    std::array<wchar_t, MAX_COMPUTERNAME_LENGTH + 1> buffer{};
    DWORD length = buffer.size();
    if (!::GetComputerNameW(buffer.data(), &length)) return tl::unexpected(LastError());
    return FromWide({buffer.data(), length});
  }

  Result<> InitializeCom() override {
    const HRESULT answer =
        ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    if (FAILED(answer)) return tl::unexpected(ErrorCode{static_cast<std::uint32_t>(answer)});
    return {};
  }

  void UninitializeCom() override { ::CoUninitialize(); }

  Result<> SetControlHandler(ControlHandler handler) override {
    Install(std::move(handler));
    if (::SetConsoleCtrlHandler(OnControlEvent, TRUE)) return {};
    const ErrorCode code = LastError();
    Install({});
    return tl::unexpected(code);
  }

  void RemoveControlHandler() override {
    ::SetConsoleCtrlHandler(OnControlEvent, FALSE);
    Install({});
  }

  void ShowErrorBox(const std::string& title, const std::string& text) override {
    ::MessageBoxW(nullptr, ToWide(text).c_str(), ToWide(title).c_str(), MB_ICONERROR | MB_OK);
  }
};

}  // namespace

std::unique_ptr<System> MakeSystem() {
  return std::make_unique<WindowsSystem>();
}

}  // namespace vosk::platform::windows
