#include "tests/support/sim_clock.h"

#include <fmt/format.h>

namespace vosk::support {
namespace {

using namespace std::chrono_literals;

// 2025-03-01 08:00:00 UTC, an hour later in the machine's zone.
constexpr std::chrono::system_clock::time_point kWallStart{
    std::chrono::sys_days{std::chrono::year{2025} / 3 / 1} + 8h};
constexpr auto kZone = 1h;
// How long the machine has been up: a steady time is never zero.
constexpr auto kUpTime = 100h;

}  // namespace

std::chrono::steady_clock::time_point SimClock::SteadyNow() {
  choke_.Announce("clock.SteadyNow");
  return std::chrono::steady_clock::time_point(kUpTime + elapsed_);
}

std::chrono::system_clock::time_point SimClock::WallNow() {
  choke_.Announce("clock.WallNow");
  return kWallStart + elapsed_;
}

std::tm SimClock::ToLocal(std::chrono::system_clock::time_point time) {
  const std::time_t shifted = std::chrono::system_clock::to_time_t(time + kZone);
  std::tm local{};
  ::gmtime_r(&shifted, &local);
  return local;
}

std::tm SimClock::LocalNow() {
  return ToLocal(kWallStart + elapsed_);
}

void SimClock::SleepFor(std::chrono::milliseconds duration) {
  choke_.Announce("clock.SleepFor", fmt::format("{}ms", duration.count()));
  Advance(duration);
}

void SimClock::At(Duration time, std::function<void()> happening) {
  happenings_.emplace(std::max(time, elapsed_), std::move(happening));
}

void SimClock::Advance(Duration limit, const std::function<bool()>& done) {
  const Duration deadline = elapsed_ + limit;
  if (deadline > budget_) choke_.ExceedBudget(fmt::format("{} s of virtual time", budget_ / 1s));
  while (!done || !done()) {
    const auto next = happenings_.begin();
    if (next == happenings_.end() || next->first > deadline) {
      // Later where something on the way took time itself.
      elapsed_ = std::max(elapsed_, deadline);
      return;
    }
    elapsed_ = next->first;
    const auto happening = std::move(next->second);
    happenings_.erase(next);
    happening();
  }
}

}  // namespace vosk::support
