// The dumps of the simulated system. Each holds its number, so that it is recognised wherever it
// ends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/clock.h"

namespace vosk::simulation {

struct DumpId {
  std::uint32_t number = 0;  // 0: not a dump of this machine
  bool whole = false;        // all of it is there, unchanged
};

// Returns the bytes of a dump: recognisable, and worth packing.
[[nodiscard]] std::string DumpBytes(std::size_t size, std::uint32_t number = 0);
[[nodiscard]] DumpId DumpIdOf(std::string_view bytes);

struct WrittenDump {
  std::uint32_t number = 0;
  std::filesystem::path path;
  Duration at{0};
};

// Every dump that the machine's programs have written.
class DumpLedger {
 public:
  explicit DumpLedger(SimClock& clock) : clock_(clock) {}
  // Returns the bytes of the next dump, which counts as written to the path now.
  [[nodiscard]] std::string Write(const std::filesystem::path& path, std::size_t size);
  // The last dump is none that anybody has to keep.
  void DisownLast() { written_.pop_back(); }
  [[nodiscard]] const std::vector<WrittenDump>& Written() const { return written_; }

 private:
  SimClock& clock_;
  std::vector<WrittenDump> written_;
};

}  // namespace vosk::simulation
