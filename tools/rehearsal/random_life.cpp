#include "tools/rehearsal/random_life.h"

#include <fmt/format.h>

#include <array>
#include <random>

namespace vosk::rehearsal {

using namespace std::chrono_literals;
using simulation::AfterPowerCut;

namespace {

constexpr std::uint32_t kAccessViolation = 0xC0000005;
constexpr std::uint64_t kPlenty = std::uint64_t{100} << 30;
constexpr std::uint64_t kTooLittle = std::uint64_t{1} << 30;

// Calls that a real machine refuses now and then, each with the code of the refusal.
constexpr std::pair<std::string_view, std::uint32_t> kRefusals[] = {
    {"processes.Open", 5},
    {"processes.Start", 8},
    {"processes.TakeSnapshot", 8},
    {"processes.Terminate", 5},
    {"files.OpenForReading", 32},
    {"files.Remove", 32},
    {"files.Rename", 32},
    {"files.Exists", 5},
    {"files.CreateDirectories", 112},

    {"dump_writer.WriteDump", 0x80070070}};

class Year {
 public:
  Year(Life& life, unsigned seed) : life_(life), random_(seed) {}

  void Draw() {
    life_.InstallRelease("1.0.0");
    Crashes();
    Outages();
    Refusals();
    DiskShortages();
    Releases();
    Ends();
    ClockSteps();
  }

 private:
  // All lives are drawn with the generator alone, since distributions differ between libraries.
  std::int64_t Below(std::int64_t limit) {
    return static_cast<std::int64_t>(random_() % static_cast<std::uint64_t>(limit));
  }
  std::int64_t Between(std::int64_t least, std::int64_t most) {
    return least + Below(most - least + 1);
  }
  bool OneIn(std::int64_t chances) { return Below(chances) == 0; }
  // Spares the first minutes, so that every life begins.
  Duration SomeTime() { return Duration(Between(600'000, kYear.count() - 3'600'000)); }
  template <typename Happening>
  void Times(std::int64_t count, Happening happening) {
    for (std::int64_t n = 0; n < count; ++n) happening(SomeTime());
  }

  // Draws from a few crashes a year to several a day, some of them in bursts.
  void Crashes() {
    const std::int64_t rate = std::array{4, 20, 60, 200}[static_cast<std::size_t>(Below(4))];
    Times(rate, [this](Duration at) {
      const std::int64_t burst = OneIn(12) ? Between(2, 8) : 1;
      const std::uint32_t code = OneIn(6) ? 0 : kAccessViolation;
      for (std::int64_t n = 0; n < burst; ++n) {
        life_.At(at + 40s * n, [code](Life& there) { there.host.CoreExits(code); });
      }
    });
  }

  void Outages() {
    const auto outage = [this](bool simulation::SimServers::*server, std::int64_t most) {
      Times(Between(0, 12), [=, this](Duration at) {
        const Duration length = std::chrono::minutes(Between(1, most));
        life_.At(at, [=](Life& there) { there.servers.*server = false; });
        life_.At(at + length, [=](Life& there) { there.servers.*server = true; });
      });
    };
    outage(&simulation::SimServers::server_up, 3 * 24 * 60);
    outage(&simulation::SimServers::version_service_up, 24 * 60);
    outage(&simulation::SimServers::downloads_up, 24 * 60);
    life_.servers.transfer_time = std::chrono::seconds(Between(0, 40));
    life_.servers.refusal_time = std::chrono::seconds(Between(0, 30));
  }

  void Refusals() {
    Times(Between(0, 60), [this](Duration at) {
      const auto& [call, code] = kRefusals[static_cast<std::size_t>(Below(std::size(kRefusals)))];
      const auto times = static_cast<int>(Between(1, 4));
      life_.At(at, [=](Life& there) { there.host.FailNext(std::string(call), code, times); });
      // Most of them happen during a crash.
      if (!OneIn(4)) life_.At(at + 1s, [](Life& there) { there.host.CoreExits(kAccessViolation); });
    });
  }

  void DiskShortages() {
    Times(Between(0, 4), [this](Duration at) {
      const Duration length = std::chrono::minutes(Between(5, 24 * 60));
      life_.At(at, [](Life& there) { there.host.files.free_space = kTooLittle; });
      life_.At(at + length, [](Life& there) { there.host.files.free_space = kPlenty; });
    });
  }

  // Every release is newer than the ones before; some are bad, and a better one follows.
  void Releases() {
    const std::int64_t count = Between(0, 8);
    for (std::int64_t n = 1; n <= count; ++n) {
      const Duration at = kYear * n / (count + 1) + std::chrono::minutes(Between(0, 24 * 60));
      simulation::SimPackage package{.version = fmt::format("1.{}.0", n)};
      const bool bad = OneIn(5);
      if (bad) package.install_exit_code = 1603;
      life_.At(at, [package](Life& there) { there.PublishRelease(package); });
      if (!bad) continue;
      simulation::SimPackage better{.version = fmt::format("1.{}.1", n)};
      const Duration until = std::chrono::minutes(Between(5, 120));
      life_.At(at + until, [better](Life& there) { there.PublishRelease(better); });
    }
  }

  void Ends() {
    Times(Between(0, 6), [this](Duration at) {
      const auto after = static_cast<AfterPowerCut>(Below(3));
      life_.CutPowerAt(at, after);
    });
    Times(Between(0, 6),
          [this](Duration at) { life_.At(at, [](Life& there) { there.KillVosk(); }); });
    // Some of each happen in the middle of a report.
    Times(Between(0, 4), [this](Duration at) {
      life_.At(at, [](Life& there) { there.host.CoreExits(kAccessViolation); });
      const Duration later = at + Duration(Between(0, 20'000));
      if (OneIn(2)) return life_.CutPowerAt(later, static_cast<AfterPowerCut>(Below(3)));
      life_.At(later, [](Life& there) { there.KillVosk(); });
    });
  }

  void ClockSteps() {
    Times(Between(0, 4), [this](Duration at) {
      const auto by = std::chrono::minutes(Between(-180, 180));
      life_.At(at, [by](Life& there) { there.host.clock.StepWallClock(by); });
    });
  }

  Life& life_;
  std::mt19937_64 random_;
};

}  // namespace

void DrawYear(Life& life, unsigned seed) {
  life.host.processes.forgets_the_ended = true;
  life.host.files.discarded = life.host.LogFile();
  life.host.clock.SetLeap(30min);
  life.PutVoskBackAfter(24h);
  life.host.InstallMonitor({.dump_size = 4'000});
  // Nobody looks, and drawing takes most of the time.
  life.host.console.Redirect(platform::StandardStream::output, simulation::StreamTarget::missing);
  life.host.console.Redirect(platform::StandardStream::error, simulation::StreamTarget::missing);
  Year(life, seed).Draw();
}

}  // namespace vosk::rehearsal
