// Timing of two rivals side by side, and the sample data they work on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace vosk::bench {

struct Times {
  double wall = 0;       // seconds
  double processor = 0;  // seconds of this process, user and system
};

// Medians of all rounds. `ratio` compares ours to theirs within each round, which suffers least if
// the machine becomes busy.
struct Comparison {
  Times ours;
  Times theirs;
  Times ratio;
};

// Runs both in turn, `rounds` times each after one unmeasured round. Who goes first changes from
// round to round.
[[nodiscard]] Comparison Compare(int rounds, const std::function<void()>& ours,
                                 const std::function<void()>& theirs);

// Writes a file that packs like a dump: runs of zeros, repeated structures with changing fields,
// text, and pages of noise. The same size gives the same bytes.
void WriteSampleDump(const std::filesystem::path& path, std::uint64_t size);

// Ends the program with a message: a measurement of something that failed is worth nothing.
[[noreturn]] void Stop(const std::string& reason);
void StopUnless(bool condition, const std::string& reason);

inline constexpr std::uint64_t kMebibyte = 1'048'576;

}  // namespace vosk::bench
