#include "platform/windows/graphics.h"

#include <windows.h>
// These build on windows.h.
#include <d3d11.h>
#include <dxgi.h>

#include <vector>

#include "platform/windows/run_time_lookup.h"

namespace vosk::platform::windows {
namespace {

struct Release {
  void operator()(IUnknown* object) const { object->Release(); }
};
template <typename Interface>
using ComOwner = std::unique_ptr<Interface, Release>;

tl::unexpected<ErrorCode> Failed(HRESULT answer) {
  return tl::unexpected(ErrorCode{static_cast<std::uint32_t>(answer)});
}

tl::unexpected<ErrorCode> Failed(ErrorCode code) {
  return Failed(HRESULT_FROM_WIN32(code.value));
}

class DxgiAdapter : public GraphicsAdapter {
 public:
  explicit DxgiAdapter(ComOwner<IDXGIAdapter1> adapter) : adapter_(std::move(adapter)) {}

  Result<GraphicsDescription> Describe() override {
    DXGI_ADAPTER_DESC1 found{};
    const HRESULT answer = adapter_->GetDesc1(&found);
    if (FAILED(answer)) return Failed(answer);
    const std::wstring name(found.Description, ::wcsnlen(found.Description, 128));
    return GraphicsDescription{
        .name = std::u16string(name.begin(), name.end()),
        .vendor_id = found.VendorId,
        .device_id = found.DeviceId,
        .subsystem_id = found.SubSysId,
        .revision = found.Revision,
        .dedicated_video_memory = found.DedicatedVideoMemory,
        .shared_system_memory = found.SharedSystemMemory,
        .luid = {static_cast<std::uint32_t>(found.AdapterLuid.HighPart), found.AdapterLuid.LowPart},
        .flags = found.Flags};
  }

  Result<std::uint32_t> TryFeatureLevels(std::span<const std::uint32_t> levels) override {
    const auto create = LookUp<decltype(&::D3D11CreateDevice)>(L"d3d11.dll", "D3D11CreateDevice");
    if (!create) return Failed(create.error().code);
    std::vector<D3D_FEATURE_LEVEL> wanted;
    for (const std::uint32_t level : levels) {
      wanted.push_back(static_cast<D3D_FEATURE_LEVEL>(level));
    }
    ID3D11Device* device = nullptr;
    D3D_FEATURE_LEVEL accepted{};
    const HRESULT answer =
        (*create)(adapter_.get(), D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, wanted.data(),
                  static_cast<UINT>(wanted.size()), D3D11_SDK_VERSION, &device, &accepted, nullptr);
    const ComOwner<ID3D11Device> owner(device);
    if (FAILED(answer)) return Failed(answer);
    return static_cast<std::uint32_t>(accepted);
  }

 private:
  ComOwner<IDXGIAdapter1> adapter_;
};

class DxgiAdapters : public GraphicsAdapters {
 public:
  explicit DxgiAdapters(ComOwner<IDXGIFactory1> factory) : factory_(std::move(factory)) {}

  Result<std::unique_ptr<GraphicsAdapter>> At(std::uint32_t index) override {
    IDXGIAdapter1* adapter = nullptr;
    const HRESULT answer = factory_->EnumAdapters1(index, &adapter);
    if (FAILED(answer)) return Failed(answer);
    return std::make_unique<DxgiAdapter>(ComOwner<IDXGIAdapter1>(adapter));
  }

 private:
  ComOwner<IDXGIFactory1> factory_;
};

}  // namespace

Result<std::unique_ptr<GraphicsAdapters>> OpenDxgi() {
  const auto create = LookUp<decltype(&::CreateDXGIFactory1)>(L"dxgi.dll", "CreateDXGIFactory1");
  if (!create) return Failed(create.error().code);
  void* factory = nullptr;
  const HRESULT answer = (*create)(IID_IDXGIFactory1, &factory);
  if (FAILED(answer)) return Failed(answer);
  return std::make_unique<DxgiAdapters>(
      ComOwner<IDXGIFactory1>(static_cast<IDXGIFactory1*>(factory)));
}

}  // namespace vosk::platform::windows
