#pragma once

#include <string>
#include <vector>

namespace vosk::report {

// A module loaded in a process; all texts UTF-8.
struct ProcessModule {
  std::string name;     // file name only, as the system spells it
  std::string path;     // of the file
  std::string version;  // of the file, or why it is not known
};

using ProcessModules = std::vector<ProcessModule>;

}  // namespace vosk::report
