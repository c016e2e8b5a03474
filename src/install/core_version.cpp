#include "install/core_version.h"

#include <istream>

namespace vosk::install {

std::string ReadCoreVersionFile(platform::Files& files,
                                const std::filesystem::path& stats_directory) {
  const auto stream = files.OpenForReading(stats_directory / "CoreVersion.txt");
  std::string line;
  if (!stream || !std::getline(**stream, line)) return {};
  constexpr std::string_view kBlanks = " \t\n\r";
  const auto first = line.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace vosk::install
