// Reads a zip and lets other people's programs judge it.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace vosk::report {

struct ZipEntry {
  std::string name;
  std::string bytes;
  friend bool operator==(const ZipEntry&, const ZipEntry&) = default;
  friend std::ostream& operator<<(std::ostream& out, const ZipEntry& entry) {
    return out << entry.name << " (" << entry.bytes.size() << " bytes)";
  }
};

// Returns the entries in their order. Fails the test if the zip cannot be read whole.
[[nodiscard]] std::vector<ZipEntry> ReadZip(const std::filesystem::path& zip);

// Fails the test if unzip, 7z or Python's zipfile find the smallest fault. Entries above 4 GiB are
// unpacked by zipfile only, and 7z may warn: it does not like miniz's headers of those.
void ExpectReadersAccept(const std::filesystem::path& zip, bool with_large_entries = false);

}  // namespace vosk::report
