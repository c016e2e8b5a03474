#include "tools/rehearsal/summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "tools/rehearsal/random_life.h"

namespace vosk::rehearsal {
namespace {

using namespace std::chrono_literals;

// VOSK logs a status line every 15 s, which leaps over quiet stretches leave out.
constexpr std::uint64_t kStatusLineBytes = 108;
constexpr Duration kStatusLineInterval = 15s;

double Share(Duration part, Duration whole) {
  return static_cast<double>(part.count()) / static_cast<double>(whole.count());
}

std::string TimeText(Duration time) {
  const auto seconds = time / 1s;
  if (seconds < 120) return fmt::format("{} s", seconds);
  if (seconds < 7200) return fmt::format("{} min {} s", seconds / 60, seconds % 60);
  return fmt::format("{} h {} min", seconds / 3600, seconds / 60 % 60);
}

std::string SizeText(std::uint64_t bytes) {
  return bytes < 10'000'000 ? fmt::format("{:.1f} kB", static_cast<double>(bytes) / 1e3)
                            : fmt::format("{:.1f} MB", static_cast<double>(bytes) / 1e6);
}

double Availability(const LivedYear& year) {
  return 1 - Share(year.tally.core_down, kYear);
}

}  // namespace

Tally Summary::Sum() const {
  Tally sum;
  for (const LivedYear& year : years_) {
    const Tally& one = year.tally;
    sum.core_down += one.core_down;
    sum.crashes += one.crashes;
    sum.vosk_starts += one.vosk_starts;
    sum.dumps_written += one.dumps_written;
    sum.reports_delivered += one.reports_delivered;
    sum.dumps_kept += one.dumps_kept;
    sum.dumps_emptied += one.dumps_emptied;
    sum.updates_made += one.updates_made;
    sum.updates_failed += one.updates_failed;
    sum.log_bytes += one.log_bytes + static_cast<std::uint64_t>(year.leapt / kStatusLineInterval) *
                                         kStatusLineBytes;
    sum.most_lines_an_hour = std::max(sum.most_lines_an_hour, one.most_lines_an_hour);
    sum.most_requests_an_hour = std::max(sum.most_requests_an_hour, one.most_requests_an_hour);
    sum.most_disk_bytes = std::max(sum.most_disk_bytes, one.most_disk_bytes);
  }
  return sum;
}

const LivedYear& Summary::LongestDown() const {
  return *std::ranges::max_element(years_, {},
                                   [](const LivedYear& year) { return year.tally.longest_down; });
}

bool Summary::EveryPromiseKept() const {
  return std::ranges::all_of(years_, [](const LivedYear& year) { return year.broken.empty(); });
}

unsigned Summary::WorstSeed() const {
  const auto broken =
      std::ranges::find_if(years_, [](const LivedYear& year) { return !year.broken.empty(); });
  return broken != years_.end() ? broken->seed : LongestDown().seed;
}

std::string Summary::Table() const {
  const Tally sum = Sum();
  const LivedYear& longest = LongestDown();
  const auto years = years_.size();
  std::string text;
  const auto row = [&text](std::string_view what, const std::string& figure) {
    text += fmt::format("| {:<38} | {:<60} |\n", what, figure);
  };
  row("lives of a year", fmt::format("{}", years));
  row("Core available",
      fmt::format("{:.4f} % (VOSK there, Core down: {} a year)",
                  100 * (1 - Share(sum.core_down, kYear * static_cast<std::int64_t>(years))),
                  TimeText(sum.core_down / static_cast<std::int64_t>(years))));
  row("longest time down",
      fmt::format("{} (seed {})", TimeText(longest.tally.longest_down), longest.seed));
  row("  its reason", longest.tally.longest_reason.substr(0, 60));
  row("crashes", fmt::format("{}", sum.crashes));
  row("starts of VOSK", fmt::format("{}", sum.vosk_starts));
  row("dumps written", fmt::format("{}", sum.dumps_written));
  row("  reports delivered", fmt::format("{}", sum.reports_delivered));
  row("  kept on the disk at the end", fmt::format("{}", sum.dumps_kept));
  row("  emptied by a start of VOSK", fmt::format("{}", sum.dumps_emptied));
  row("updates made, failed", fmt::format("{}, {}", sum.updates_made, sum.updates_failed));
  row("VOSK.log a year", SizeText(sum.log_bytes / years));
  row("most log lines in an hour", fmt::format("{}", sum.most_lines_an_hour));
  row("most disk for dumps and reports", SizeText(sum.most_disk_bytes));
  row("most requests in an hour", fmt::format("{}", sum.most_requests_an_hour));
  std::map<std::string, std::pair<int, unsigned>> breaks;
  for (const LivedYear& year : years_) {
    for (const BrokenPromise& broken : year.broken) {
      auto& [count, seed] = breaks[broken.promise + ": " + broken.how];
      if (count++ == 0) seed = year.seed;
    }
  }
  for (const auto& [what, known] : breaks) {
    text += fmt::format("BROKEN in {} lives: {} (--years 1 --seed {})\n", known.first, what,
                        known.second);
  }
  if (breaks.empty()) text += "Every promise was kept.\n";
  return text;
}

std::string Summary::Picture() const {
  // One bar for each tenth of the lives, the least available first.
  std::vector<double> shares;
  for (const LivedYear& year : years_) shares.push_back(Availability(year));
  std::ranges::sort(shares);
  constexpr int kBars = 10;
  constexpr int kWidth = 640;
  constexpr int kRow = 26;
  std::string svg = fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" font-family=\""
      "monospace\" font-size=\"13\">\n<rect width=\"{0}\" height=\"{1}\" fill=\"#0c0c0c\"/>\n"
      "<text x=\"12\" y=\"24\" fill=\"#cccccc\">Minutes a year without a Core, {2} lives, worst "
      "tenth first</text>\n",
      kWidth, 48 + kBars * kRow, years_.size());
  const double worst = std::max(1e-9, 1 - shares.front());
  for (int bar = 0; bar < kBars; ++bar) {
    const double down = 1 - shares[shares.size() * static_cast<std::size_t>(bar) / kBars];
    const int y = 40 + bar * kRow;
    svg += fmt::format(
        "<rect x=\"100\" y=\"{}\" width=\"{:.0f}\" height=\"18\" fill=\"#13a10e\"/>\n<text "
        "x=\"12\" y=\"{}\" fill=\"#cccccc\">{:.0f}</text>\n",
        y, 520 * down / worst, y + 14, down * 365 * 24 * 60);
  }
  return svg + "</svg>\n";
}

}  // namespace vosk::rehearsal
