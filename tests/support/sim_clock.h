// Virtual time: it moves only in sleeps and waits, and whatever is due on the way happens then.
#pragma once

#include <chrono>
#include <functional>
#include <map>

#include "platform/clock.h"
#include "tests/support/choke_point.h"

namespace vosk::support {

using Duration = std::chrono::milliseconds;

class SimClock : public platform::Clock {
 public:
  explicit SimClock(ChokePoint& choke) : choke_(choke) {}

  std::chrono::steady_clock::time_point SteadyNow() override;
  std::chrono::system_clock::time_point WallNow() override;
  std::tm ToLocal(std::chrono::system_clock::time_point time) override;
  void SleepFor(std::chrono::milliseconds duration) override;

  // Virtual time since the host was made.
  [[nodiscard]] Duration Elapsed() const { return elapsed_; }
  // The local time now, for names of files that the simulated programs write.
  [[nodiscard]] std::tm LocalNow();
  void At(Duration time, std::function<void()> happening);
  void After(Duration delay, std::function<void()> happening) {
    At(elapsed_ + delay, std::move(happening));
  }
  // Moves time on by `limit`, or only until `done` holds after something happened.
  void Advance(Duration limit, const std::function<bool()>& done = {});
  void SetBudget(Duration budget) { budget_ = budget; }

 private:
  ChokePoint& choke_;
  Duration elapsed_{0};
  Duration budget_ = std::chrono::hours(24);
  std::multimap<Duration, std::function<void()>> happenings_;
};

}  // namespace vosk::support
