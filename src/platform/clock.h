#pragma once

#include <chrono>
#include <ctime>

namespace vosk::platform {

class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::chrono::steady_clock::time_point SteadyNow() = 0;
  virtual std::chrono::system_clock::time_point WallNow() = 0;
  // Returns the time in the machine's time zone.
  virtual std::tm ToLocal(std::chrono::system_clock::time_point time) = 0;
  virtual void SleepFor(std::chrono::milliseconds duration) = 0;
};

}  // namespace vosk::platform
