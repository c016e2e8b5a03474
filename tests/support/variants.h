// One scene in many variants, as a text that a person reads.
#pragma once

#include <filesystem>
#include <string>

#include "simulation/log_recorder.h"

namespace vosk::support {

class Variants {
 public:
  // What happened in a variant: its log, and how it ended, in one line or more.
  void Add(const std::string& name, simulation::LogText log, const std::string& end);

  // The stored text (see ExpectStoredText) has the first variant whole and of every other one what
  // differs from it; of lines that are missing in a row only the first is named.
  void Expect(const std::filesystem::path& file) const;

 private:
  simulation::LogText first_;
  std::string text_;
};

}  // namespace vosk::support
