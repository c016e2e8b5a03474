// The measurements of this program. Each prints its figures and says whether its target is met.
#pragma once

#include <filesystem>

namespace vosk::bench {

// Compares packing a dump with miniz alone on the same bytes: at most 3 % more time.
[[nodiscard]] bool MeasurePacking(const std::filesystem::path& work_directory);

// Compares uploading to a server that discards everything with libcurl alone: at least 0.9 of its
// speed.
[[nodiscard]] bool MeasureUploading(const std::filesystem::path& work_directory);

// Measures the peak memory of packing and uploading above the idle program, for a small and a large
// dump: below 4 MB.
[[nodiscard]] bool MeasureMemory(const std::filesystem::path& work_directory);

// Lets hours pass in which nothing happens: the heap must not grow.
[[nodiscard]] bool MeasureIdle(const std::filesystem::path& work_directory);

// Runs in a process of its own, for MeasureMemory.
[[nodiscard]] int RunMemoryChild(const std::filesystem::path& work_directory,
                                 const std::filesystem::path& dump, const char* server_url);

}  // namespace vosk::bench
