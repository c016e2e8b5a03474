#include "simulation/clock.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace vosk::simulation {
namespace {

using namespace std::chrono_literals;

// 2025-03-01 08:00:00 UTC, an hour later in the machine's zone.
constexpr std::chrono::system_clock::time_point kWallStart{
    std::chrono::sys_days{std::chrono::year{2025} / 3 / 1} + 8h};
constexpr auto kZone = 1h;
// How long the machine has been up: a steady time is never zero.
constexpr auto kUpTime = 100h;
// Only the pauses of VOSK's loop are as short as this.
constexpr Duration kLoopPause{500};

}  // namespace

std::chrono::steady_clock::time_point SimClock::SteadyNow() {
  choke_.Announce("clock.SteadyNow");
  return std::chrono::steady_clock::time_point(kUpTime + elapsed_);
}

std::chrono::system_clock::time_point SimClock::WallNow() {
  choke_.Announce("clock.WallNow");
  return MachineTime();
}

std::chrono::system_clock::time_point SimClock::MachineTime() const {
  return kWallStart + elapsed_ + wall_step_;
}

std::tm SimClock::ToLocal(std::chrono::system_clock::time_point time) {
  const std::time_t shifted = std::chrono::system_clock::to_time_t(time + kZone);
  std::tm local{};
  ::gmtime_r(&shifted, &local);
  return local;
}

std::tm SimClock::LocalNow() {
  return ToLocal(MachineTime());
}

void SimClock::SleepFor(std::chrono::milliseconds duration) {
  choke_.Announce("clock.SleepFor", fmt::format("{}ms", duration.count()));
  if (leap_ > Duration(0) && duration <= kLoopPause && elapsed_ >= awake_until_) {
    const Duration leap = std::max(duration, std::min(leap_, UntilNextHappening()));
    leapt_ += leap - duration;
    return Advance(leap);
  }
  Advance(duration);
}

Duration SimClock::UntilNextHappening() const {
  return happenings_.empty() ? leap_ : happenings_.begin()->first - elapsed_;
}

void SimClock::At(Duration time, std::function<void()> happening) {
  happenings_.emplace(std::max(time, elapsed_), Happening{std::move(happening)});
}

void SimClock::After(Duration delay, std::function<void()> happening) {
  happenings_.emplace(elapsed_ + delay, Happening{std::move(happening), /*of_the_machine=*/true});
}

void SimClock::PowerIsGone() {
  std::erase_if(happenings_, [](const auto& due) { return due.second.of_the_machine; });
}

void SimClock::MoveTo(Duration time) {
  if (time <= elapsed_) return;
  const Duration passed = time - std::exchange(elapsed_, time);
  if (on_advance) on_advance(passed);
}

void SimClock::Advance(Duration limit, const std::function<bool()>& done) {
  const Duration deadline = elapsed_ + limit;
  if (deadline > budget_) choke_.ExceedBudget(fmt::format("{} s of virtual time", budget_ / 1s));
  bool something_happened = false;
  while (!done || !done()) {
    const auto next = happenings_.begin();
    if (next == happenings_.end() || next->first > deadline) {
      // It may be later already, if something on the way took time.
      MoveTo(deadline);
      // This is noticed only now, after the whole wait.
      if (something_happened) Wake();
      return;
    }
    MoveTo(next->first);
    const auto happen = std::move(next->second.happen);
    happenings_.erase(next);
    Wake();
    something_happened = true;
    happen();
  }
}

}  // namespace vosk::simulation
