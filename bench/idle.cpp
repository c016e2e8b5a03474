#include <fmt/format.h>
#include <malloc.h>

#include <ctime>
#include <vector>

#include "bench/benches.h"
#include "identity.h"
#include "simulation/servers.h"
#include "supervisor/supervisor.h"

namespace vosk::bench {
namespace {

using namespace std::chrono_literals;

constexpr int kHours = 11;  // the Core is restarted after twelve
// The lines of the simulated system's trace differ in length, so the heap moves a little.
constexpr double kMostGrowthKilobytes = 16;

struct Reading {
  double heap_kilobytes = 0;
  double log_kilobytes = 0;
  double processor_seconds = 0;
};

Reading Read(simulation::SimulatedHost& host) {
  host.console.Forget();
  return {.heap_kilobytes = static_cast<double>(mallinfo2().uordblks) / 1e3,
          .log_kilobytes = static_cast<double>(std::filesystem::file_size(host.LogFile())) / 1e3,
          .processor_seconds = static_cast<double>(std::clock()) / CLOCKS_PER_SEC};
}

}  // namespace

bool MeasureIdle(const std::filesystem::path&) {
  simulation::SimulatedHost host;
  host.choke.SetCallBudget(100'000'000);
  host.Furnish();
  host.processes.Add(std::u16string(identity::kCoreExecutable));
  std::vector<Reading> readings;
  readings.reserve(kHours);
  for (int hour = 1; hour <= kHours; ++hour) {
    host.At(std::chrono::hours(hour),
            [&readings](simulation::SimulatedHost& at) { readings.push_back(Read(at)); });
  }
  host.At(std::chrono::hours(kHours) + 1min,
          [](simulation::SimulatedHost& at) { at.KeyPressed('q'); });
  simulation::SimServers servers(host);
  const int status = supervisor::Supervisor(host.Bundle(), servers).Run({});
  const Reading& first = readings.front();
  const Reading& last = readings.back();
  constexpr int kMeasuredHours = kHours - 1;
  const double growth = last.heap_kilobytes - first.heap_kilobytes;
  fmt::print("{} hours of a Core that runs, on the simulated system\n", kMeasuredHours);
  fmt::print(
      "  heap {:.1f} kB, growth {:+.1f} kB; VOSK.log {:+.1f} kB an hour; {:.0f} us a cycle\n",
      first.heap_kilobytes, growth, (last.log_kilobytes - first.log_kilobytes) / kMeasuredHours,
      (last.processor_seconds - first.processor_seconds) * 1e6 / (kMeasuredHours * 7200));
  const bool met = status == 0 && growth < kMostGrowthKilobytes;
  fmt::print("  target below {:.0f} kB of growth: {}\n", kMostGrowthKilobytes,
             met ? "met" : "MISSED");
  return met;
}

}  // namespace vosk::bench
