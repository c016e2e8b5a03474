// Measures VOSK's speed and memory. vosk_bench DIRECTORY [NAME...]: files of up to a few GiB go
// into the directory; without names everything is measured. Ends with 1 if a target is missed.
#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>
#include <vector>

#include "bench/benches.h"

namespace {

struct Bench {
  std::string_view name;
  bool (*run)(const std::filesystem::path& work_directory);
};

constexpr Bench kBenches[] = {
    {"packing", vosk::bench::MeasurePacking},
    {"memory", vosk::bench::MeasureMemory},
    {"uploading", vosk::bench::MeasureUploading},
    {"idle", vosk::bench::MeasureIdle},
};

}  // namespace

int main(int argc, char** argv) try {
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  if (arguments.empty()) {
    fmt::print(stderr, "usage: vosk_bench DIRECTORY [NAME...]\n");
    return 2;
  }
  curl_global_init(CURL_GLOBAL_ALL);
  if (arguments.size() == 4 && arguments[1] == "memory-child") {
    return vosk::bench::RunMemoryChild(arguments[0], arguments[2], argv[4]);
  }
  bool all_met = true;
  for (const Bench& bench : kBenches) {
    const bool named =
        std::find(arguments.begin() + 1, arguments.end(), bench.name) != arguments.end();
    if (arguments.size() > 1 && !named) continue;
    fmt::print("== {}\n", bench.name);
    std::fflush(stdout);
    if (!bench.run(arguments[0])) all_met = false;
    std::fflush(stdout);
  }
  return all_met ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& problem) {
  std::fprintf(stderr, "vosk_bench: %s\n", problem.what());
  return 2;
}
