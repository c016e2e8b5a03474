// The TUS 1.0.0 protocol as this client speaks it, without a connection: what a request carries and
// what an answer means. Offsets and sizes are bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vosk::report {

inline constexpr std::int64_t kChunkSize = 5'242'880;
inline constexpr int kMaxAttempts = 4;  // for each chunk

// Returns the value of the first header line with this name, whatever its case; empty if there is
// none. `raw_headers` are lines as received, possibly of several responses.
[[nodiscard]] std::string FindHeaderValue(std::string_view raw_headers, std::string_view name);

// Uses the standard alphabet and pads with "=".
[[nodiscard]] std::string Base64Encode(std::string_view bytes);

// Reads the whole value as a decimal number. Throws std::invalid_argument if it is none or
// something follows it, std::out_of_range if it does not fit.
[[nodiscard]] std::int64_t ParseOffset(std::string_view value);

// Return the header lines of the three kinds of requests.
[[nodiscard]] std::vector<std::string> CreationHeaders(std::int64_t file_size,
                                                       std::string_view metadata);
[[nodiscard]] std::vector<std::string> OffsetQueryHeaders();
[[nodiscard]] std::vector<std::string> ChunkHeaders(std::int64_t offset);

// Returns the Upload-Metadata value. `extension` is the file's, with its dot.
[[nodiscard]] std::string UploadMetadata(std::string_view file_name, std::string_view extension);

[[nodiscard]] std::int64_t ChunkLength(std::int64_t offset, std::int64_t file_size);

enum class ChunkVerdict { accepted, retry, attempts_used_up, refused };
// `transferred` says whether a whole answer came; `attempt` includes this one.
[[nodiscard]] ChunkVerdict JudgeChunk(bool transferred, long status, int attempt);

enum class OffsetVerdict {
  offset_given,
  only_length_given,
  nothing_given,
  resource_missing,
  refused
};
[[nodiscard]] OffsetVerdict JudgeOffsetAnswer(long status, std::string_view raw_headers);

// Returns the share of the file that has been sent, 0 to 100.
[[nodiscard]] double Percentage(std::int64_t sent, std::int64_t file_size);

}  // namespace vosk::report
