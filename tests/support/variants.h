// Stores one scene in many variants as a readable text.
#pragma once

#include <filesystem>
#include <string>

#include "simulation/log_recorder.h"

namespace vosk::support {

class Variants {
 public:
  // Adds what happened in a variant: its log, and how it ended, in one line or more.
  void Add(const std::string& name, simulation::LogText log, const std::string& end);

  // The stored text (see ExpectStoredText) has the first variant whole and the differences of every
  // other one; if several lines in a row are missing, only the first is named.
  void Expect(const std::filesystem::path& file) const;

 private:
  simulation::LogText first_;
  std::string text_;
};

}  // namespace vosk::support
