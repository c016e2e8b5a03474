#include "platform/system.h"

#include <windows.h>
// These build on windows.h.
#include <objbase.h>
#include <shlobj.h>

#include <array>

#include "platform/windows/error_text.h"
#include "platform/windows/parts.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

using PathBuffer = std::array<wchar_t, kMaxPath>;

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

  void ShowErrorBox(const std::string& title, const std::string& text) override {
    ::MessageBoxW(nullptr, ToWide(text).c_str(), ToWide(title).c_str(), MB_ICONERROR | MB_OK);
  }
};

}  // namespace

std::unique_ptr<System> MakeSystem() {
  return std::make_unique<WindowsSystem>();
}

}  // namespace vosk::platform::windows
