// Virtual time: it moves only in sleeps and waits, and whatever is due in between happens then.
#pragma once

#include <chrono>
#include <functional>
#include <map>

#include "platform/clock.h"
#include "simulation/choke_point.h"

namespace vosk::simulation {

using Duration = std::chrono::milliseconds;

class SimClock : public platform::Clock {
 public:
  explicit SimClock(ChokePoint& choke) : choke_(choke) {}

  std::chrono::steady_clock::time_point SteadyNow() override;
  std::chrono::system_clock::time_point WallNow() override;
  std::tm ToLocal(std::chrono::system_clock::time_point time) override;
  void SleepFor(std::chrono::milliseconds duration) override;

  // Returns the virtual time since the host was made.
  [[nodiscard]] Duration Elapsed() const { return elapsed_; }
  // Returns the wall time, for the machine itself.
  [[nodiscard]] std::chrono::system_clock::time_point MachineTime() const;
  // Returns the local time, for the names of files that the simulated programs write.
  [[nodiscard]] std::tm LocalNow();
  // Plans something that a scenario wants to happen.
  void At(Duration time, std::function<void()> happening);
  // Plans something that a program of the machine will do; a power cut cancels it.
  void After(Duration delay, std::function<void()> happening);
  // Called when time has moved on, with the difference.
  std::function<void(Duration)> on_advance;
  // Moves time on by `limit`, or until something happened and `done` is true.
  void Advance(Duration limit, const std::function<bool()>& done = {});
  void PowerIsGone();
  void SetBudget(Duration budget) { budget_ = budget; }
  // Sets the machine's clock; the steady time goes on unchanged.
  void StepWallClock(Duration by) { wall_step_ += by; }
  // Quiet stretches pass in leaps: if nothing has happened for half a minute, a sleep of half a
  // second or less lasts up to this long, but ends when something is due, as if VOSK had not been
  // given the processor meanwhile. With zero, the default, there are no leaps.
  void SetLeap(Duration leap) { leap_ = leap; }
  // Notes that something happened, so that the next half minute passes in full.
  void Wake() { awake_until_ = elapsed_ + kWakefulness; }
  // Returns the time that has passed in leaps.
  [[nodiscard]] Duration Leapt() const { return leapt_; }

 private:
  static constexpr Duration kWakefulness = std::chrono::seconds(30);
  [[nodiscard]] Duration UntilNextHappening() const;
  void MoveTo(Duration time);

  ChokePoint& choke_;
  Duration elapsed_{0};
  Duration wall_step_{0};
  Duration leap_{0};
  Duration leapt_{0};
  Duration awake_until_{0};
  Duration budget_ = std::chrono::hours(24);
  struct Happening {
    std::function<void()> happen;
    bool of_the_machine = false;
  };
  std::multimap<Duration, Happening> happenings_;
};

}  // namespace vosk::simulation
