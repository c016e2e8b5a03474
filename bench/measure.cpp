#include "bench/measure.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <vector>

namespace vosk::bench {
namespace {

constexpr std::size_t kPage = 4096;

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Times Measure(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  const double processor_start = ProcessorSeconds();
  work();
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  return {wall.count(), ProcessorSeconds() - processor_start};
}

double Median(std::vector<Times> times, double Times::*part) {
  std::ranges::sort(times, {}, part);
  return times[times.size() / 2].*part;
}

Times Medians(const std::vector<Times>& times) {
  return {Median(times, &Times::wall), Median(times, &Times::processor)};
}

using Page = std::array<char, kPage>;

void FillStructures(Page& page, std::mt19937_64& random) {
  for (std::size_t at = 0; at < kPage; at += 32) {
    const std::array<std::uint64_t, 4> record = {0x00007FF6'12340000 + random() % 4096 * 16,
                                                 0x000001A0'00000000 + random() % 65536 * 8,
                                                 random() % 64, 0xFFFFFFFF};
    std::memcpy(&page[at], record.data(), 32);
  }
}

void FillText(Page& page, std::mt19937_64& random) {
  static constexpr std::array<const char*, 8> kWords = {
      "block ",  "peer ",    "hash ",      "transaction ",
      "height ", "timeout ", "validated ", "C:\\Program Files\\"};
  for (std::size_t at = 0; at < kPage;) {
    const char* const word = kWords[random() % kWords.size()];
    const std::size_t length = std::min(std::strlen(word), kPage - at);
    std::memcpy(&page[at], word, length);
    at += length;
  }
}

void FillNoise(Page& page, std::mt19937_64& random) {
  for (std::size_t at = 0; at < kPage; at += 8) {
    const std::uint64_t bits = random();
    std::memcpy(&page[at], &bits, 8);
  }
}

}  // namespace

Comparison Compare(int rounds, const std::function<void()>& ours,
                   const std::function<void()>& theirs) {
  ours();
  theirs();
  std::vector<Times> our_times;
  std::vector<Times> their_times;
  std::vector<Times> ratios;
  for (int round = 0; round < rounds; ++round) {
    if (round % 2 == 0) our_times.push_back(Measure(ours));
    their_times.push_back(Measure(theirs));
    if (round % 2 == 1) our_times.push_back(Measure(ours));
    ratios.push_back({our_times.back().wall / their_times.back().wall,
                      our_times.back().processor / their_times.back().processor});
  }
  return {Medians(our_times), Medians(their_times), Medians(ratios)};
}

void WriteSampleDump(const std::filesystem::path& path, std::uint64_t size) {
  std::ofstream file(path, std::ios::binary);
  std::mt19937_64 random(size);
  Page page{};
  for (std::uint64_t left = size; left > 0; left -= std::min<std::uint64_t>(left, kPage)) {
    const std::uint64_t kind = random() % 10;
    page.fill(0);
    if (kind < 4) FillStructures(page, random);
    if (kind == 4 || kind == 5) FillText(page, random);
    if (kind == 6 || kind == 7) FillNoise(page, random);
    file.write(page.data(), static_cast<std::streamsize>(std::min<std::uint64_t>(left, kPage)));
  }
  file.close();
  StopUnless(!file.fail(), "no room for a sample dump: " + path.string());
}

void Stop(const std::string& reason) {
  std::fflush(stdout);
  fmt::print(stderr, "vosk_bench: {}\n", reason);
  std::_Exit(2);
}

void StopUnless(bool condition, const std::string& reason) {
  if (!condition) Stop(reason);
}

}  // namespace vosk::bench
