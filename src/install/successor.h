// The VOSK that an installation has put in the place of the running one.
#pragma once

#include <filesystem>
#include <optional>

#include "console/log.h"
#include "platform/host.h"
#include "process/process_control.h"

namespace vosk::install {

class Successor {
 public:
  Successor(const platform::Host& host, console::LogSink& log, process::ProcessControl& processes);

  // Makes sure that the new VOSK, which lies beside the Core that was watched or beside the
  // installed one, runs: waits some seconds for the installer to start it and else launches it. It
  // counts only if it stays for two seconds. False if it does not run; the reason is in the log.
  [[nodiscard]] bool HandOver(const std::filesystem::path& core_directory);

 private:
  [[nodiscard]] std::optional<std::filesystem::path> Find(
      const std::filesystem::path& core_directory);
  [[nodiscard]] bool Appears();
  // The other running VOSKs.
  [[nodiscard]] process::ProcessList Others();
  [[nodiscard]] bool Launch(const std::filesystem::path& executable);

  platform::Host host_;
  console::LogSink& log_;
  process::ProcessControl& processes_;
};

}  // namespace vosk::install
