#include "simulation/dumps.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace vosk::simulation {
namespace {

constexpr std::string_view kSignature = "MDMP\x93\xa7";

// The label follows the signature.
struct Label {
  std::uint64_t number = 0;
  std::uint64_t size = 0;
  std::uint64_t digest = 0;  // of everything after the label
};
constexpr std::size_t kHead = kSignature.size() + sizeof(Label);

std::uint64_t Digest(std::string_view body) {
  return std::hash<std::string_view>{}(body);
}

}  // namespace

std::string DumpBytes(std::size_t size, std::uint32_t number) {
  std::string body;
  for (std::uint32_t state = number + 1; body.size() + kHead < size;
       state = state * 1664525 + 1013904223) {
    body += static_cast<char>(state >> 24);
    if (state % 3 == 0) body.append(12, '\0');
  }
  body.resize(std::max(size, kHead) - kHead);
  const Label label{.number = number, .size = body.size(), .digest = Digest(body)};
  std::string bytes(kSignature);
  bytes.append(reinterpret_cast<const char*>(&label), sizeof label);
  return bytes + body;
}

DumpId DumpIdOf(std::string_view bytes) {
  if (bytes.size() < kHead || !bytes.starts_with(kSignature)) return {};
  Label label;
  std::memcpy(&label, bytes.data() + kSignature.size(), sizeof label);
  const std::string_view body = bytes.substr(kHead);
  return {.number = static_cast<std::uint32_t>(label.number),
          .whole = body.size() == label.size && Digest(body) == label.digest};
}

std::string DumpLedger::Write(const std::filesystem::path& path, std::size_t size) {
  const auto number = static_cast<std::uint32_t>(written_.size() + 1);
  written_.push_back({.number = number, .path = path, .at = clock_.Elapsed()});
  return DumpBytes(size, number);
}

}  // namespace vosk::simulation
