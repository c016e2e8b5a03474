#include "report/upload/tus_protocol.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

#include "text/utf.h"

namespace vosk::report {
namespace {

constexpr std::string_view kProtocolVersion = "Tus-Resumable: 1.0.0";

std::string_view TrimBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::string FindHeaderValue(std::string_view raw_headers, std::string_view name) {
  const std::string wanted = text::ToLowerAscii(name);
  while (!raw_headers.empty()) {
    const std::size_t end = std::min(raw_headers.find('\n'), raw_headers.size());
    std::string_view line = raw_headers.substr(0, end);
    raw_headers.remove_prefix(std::min(end + 1, raw_headers.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    if (text::ToLowerAscii(line.substr(0, colon)) != wanted) continue;
    return std::string(TrimBlanks(line.substr(colon + 1)));
  }
  return {};
}

std::string Base64Encode(std::string_view bytes) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      bits = bits << 8 | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0u);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      out += i <= count ? kAlphabet[bits >> (18 - 6 * i) & 0x3F] : '=';
    }
  }
  return out;
}

std::int64_t ParseOffset(std::string_view value) {
  if (value.starts_with('+') && !value.starts_with("+-")) value.remove_prefix(1);
  std::int64_t offset = 0;
  const auto [end, problem] = std::from_chars(value.data(), value.data() + value.size(), offset);
  if (problem == std::errc::result_out_of_range) {
    throw std::out_of_range("Number does not fit into 64 bits");
  }
  if (problem != std::errc{}) throw std::invalid_argument("Not a number");
  if (end != value.data() + value.size()) {
    throw std::invalid_argument("Invalid characters after offset number");
  }
  return offset;
}

std::vector<std::string> CreationHeaders(std::int64_t file_size, std::string_view metadata) {
  return {std::string(kProtocolVersion), fmt::format("Upload-Length: {}", file_size),
          fmt::format("Upload-Metadata: {}", metadata)};
}

std::vector<std::string> OffsetQueryHeaders() {
  return {std::string(kProtocolVersion)};
}

std::vector<std::string> ChunkHeaders(std::int64_t offset) {
  return {std::string(kProtocolVersion), fmt::format("Upload-Offset: {}", offset),
          "Content-Type: application/offset+octet-stream"};
}

std::string UploadMetadata(std::string_view file_name, std::string_view extension) {
  const std::string_view file_type =
      extension == ".zip" ? "application/zip" : "application/octet-stream";
  return fmt::format("filename {},filetype {}", Base64Encode(file_name), Base64Encode(file_type));
}

std::int64_t ChunkLength(std::int64_t offset, std::int64_t file_size) {
  return std::min(kChunkSize, file_size - offset);
}

ChunkVerdict JudgeChunk(bool transferred, long status, int attempt) {
  if (transferred && status == 204) return ChunkVerdict::accepted;
  if (attempt >= kMaxAttempts) return ChunkVerdict::attempts_used_up;
  // A conflict (409) and a lock (423) are temporary.
  const bool final = transferred && status < 500 && status != 409 && status != 423;
  return final ? ChunkVerdict::refused : ChunkVerdict::retry;
}

OffsetVerdict JudgeOffsetAnswer(long status, std::string_view raw_headers) {
  if (status == 403 || status == 404 || status == 410) return OffsetVerdict::resource_missing;
  if (status != 200 && status != 204) return OffsetVerdict::refused;
  if (!FindHeaderValue(raw_headers, "Upload-Offset").empty()) return OffsetVerdict::offset_given;
  if (!FindHeaderValue(raw_headers, "Upload-Length").empty()) {
    return OffsetVerdict::only_length_given;
  }
  return OffsetVerdict::nothing_given;
}

double Percentage(std::int64_t sent, std::int64_t file_size) {
  return static_cast<double>(sent) / static_cast<double>(file_size) * 100.0;
}

}  // namespace vosk::report
