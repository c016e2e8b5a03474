// The VOSK that an installation has put in the place of the running one.
#pragma once

#include <filesystem>

#include "console/log.h"
#include "platform/host.h"
#include "process/process_control.h"

namespace vosk::install {

class Successor {
 public:
  Successor(const platform::Host& host, console::LogSink& log, process::ProcessControl& processes);

  // Makes sure that the new VOSK beside the Core runs: waits some seconds for the installer to
  // start it, otherwise launches it. Returns false if it does not run; the reason is logged.
  [[nodiscard]] bool HandOver(const std::filesystem::path& core_directory);

 private:
  [[nodiscard]] bool Appears();
  [[nodiscard]] bool Launch(const std::filesystem::path& executable);

  platform::Host host_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
};

}  // namespace vosk::install
