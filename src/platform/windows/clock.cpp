#include "platform/clock.h"

#include <windows.h>

#include "platform/windows/parts.h"

namespace vosk::platform::windows {
namespace {

class WindowsClock : public Clock {
 public:
  std::chrono::steady_clock::time_point SteadyNow() override {
    return std::chrono::steady_clock::now();
  }
  std::chrono::system_clock::time_point WallNow() override {
    return std::chrono::system_clock::now();
  }
  std::tm ToLocal(std::chrono::system_clock::time_point time) override {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    ::localtime_s(&local, &seconds);
    return local;
  }
  void SleepFor(std::chrono::milliseconds duration) override {
    ::Sleep(static_cast<DWORD>(duration.count()));
  }
};

}  // namespace

std::unique_ptr<Clock> MakeClock() {
  return std::make_unique<WindowsClock>();
}

}  // namespace vosk::platform::windows
