// Keeps VOSK from being ended while its executable is out of its place.
#pragma once

#include <atomic>
#include <filesystem>

#include "console/log.h"
#include "platform/host.h"
#include "platform/system.h"

namespace vosk::install {

// While it lives, Ctrl+C and Ctrl+Break are refused. The closing of the console, a logoff and a
// shutdown cannot be: they put a copy of `away` at `own` if nothing is there.
class EndingHeldOff {
 public:
  EndingHeldOff(const platform::Host& host, console::LogSink& log, std::filesystem::path own,
                std::filesystem::path away);
  ~EndingHeldOff();
  EndingHeldOff(const EndingHeldOff&) = delete;
  EndingHeldOff& operator=(const EndingHeldOff&) = delete;

  // Logs that keys were refused since the last call, if any were.
  void TellOfRefusals();

 private:
  // On a thread of the system's own, which must not use the log.
  [[nodiscard]] bool Answer(platform::ControlEvent event);

  platform::Host host_;
  console::LogSink& log_;
  const std::filesystem::path own_;
  const std::filesystem::path away_;
  std::atomic<int> refusals_{0};
};

}  // namespace vosk::install
