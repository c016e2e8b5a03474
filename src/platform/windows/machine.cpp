#include "platform/machine.h"

#include <windows.h>
// winver.h builds on windows.h.
#include <winver.h>

#include <array>
#include <vector>

#include "platform/system.h"
#include "platform/windows/error_text.h"
#include "platform/windows/graphics.h"
#include "platform/windows/network.h"
#include "platform/windows/parts.h"
#include "platform/windows/run_time_lookup.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

class WindowsMachine : public Machine {
 public:
  Result<MemoryStatus> Memory() override {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof(status);
    if (!::GlobalMemoryStatusEx(&status)) return tl::unexpected(LastError());
    return MemoryStatus{status.ullTotalPhys, status.ullAvailPhys, status.dwMemoryLoad};
  }

  std::uint32_t LogicalProcessors() override {
    // GetSystemInfo would count those of one processor group only, which are 64 at most.
    return ::GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
  }

  Result<std::unique_ptr<GraphicsAdapters>> OpenGraphics() override { return OpenDxgi(); }

  Result<std::unique_ptr<NetworkSession>> OpenNetwork() override { return OpenWinsock(); }

  Result<std::filesystem::path> SystemDirectory() override {
    std::array<wchar_t, kMaxPath> buffer{};
    const UINT length = ::GetSystemDirectoryW(buffer.data(), kMaxPath);
    if (length == 0 || length >= kMaxPath) return tl::unexpected(LastError());
    return std::wstring(buffer.data(), length);
  }

  Result<FileVersion> VersionOf(const std::filesystem::path& file) override {
    const std::wstring path = SystemPath(file);
    const DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), nullptr);
    if (size == 0) return tl::unexpected(LastError());
    std::vector<std::uint8_t> resource(size);
    if (!::GetFileVersionInfoW(path.c_str(), 0, size, resource.data())) {
      return tl::unexpected(LastError());
    }
    void* found = nullptr;
    UINT length = 0;
    if (!::VerQueryValueW(resource.data(), L"\\", &found, &length) ||
        length < sizeof(VS_FIXEDFILEINFO)) {
      return tl::unexpected(ErrorCode{ERROR_RESOURCE_DATA_NOT_FOUND});
    }
    const auto& version = *static_cast<const VS_FIXEDFILEINFO*>(found);
    return FileVersion{HIWORD(version.dwFileVersionMS), LOWORD(version.dwFileVersionMS),
                       HIWORD(version.dwFileVersionLS), LOWORD(version.dwFileVersionLS)};
  }

  Result<WindowsVersion> OperatingSystem() override {
    using RtlGetVersion = LONG(WINAPI*)(OSVERSIONINFOEXW*);
    const auto get_version = LookUp<RtlGetVersion>(L"ntdll.dll", "RtlGetVersion");
    if (!get_version) return tl::unexpected(get_version.error());
    OSVERSIONINFOEXW found{};
    found.dwOSVersionInfoSize = sizeof(found);
    const LONG status = (*get_version)(&found);
    if (status < 0) return tl::unexpected(ErrorCode{static_cast<std::uint32_t>(status)});
    const std::wstring_view service_pack(found.szCSDVersion);
    return WindowsVersion{.major = found.dwMajorVersion,
                          .minor = found.dwMinorVersion,
                          .build = found.dwBuildNumber,
                          .product_type = found.wProductType,
                          .service_pack_major = found.wServicePackMajor,
                          .service_pack_minor = found.wServicePackMinor,
                          .service_pack = {service_pack.begin(), service_pack.end()}};
  }

  Result<std::uint32_t> ProductCode(const WindowsVersion& version) override {
    const auto get_info = LookUp<decltype(&::GetProductInfo)>(L"kernel32.dll", "GetProductInfo");
    if (!get_info) return tl::unexpected(get_info.error());
    DWORD code = 0;
    if (!(*get_info)(version.major, version.minor, version.service_pack_major,
                     version.service_pack_minor, &code)) {
      return tl::unexpected(LastError());
    }
    return code;
  }
};

}  // namespace

std::unique_ptr<Machine> MakeMachine() {
  return std::make_unique<WindowsMachine>();
}

}  // namespace vosk::platform::windows
