#include "install/ending_held_off.h"

#include <mutex>
#include <utility>

#include "platform/console.h"
#include "platform/files.h"

namespace vosk::install {

using platform::ControlEvent;

EndingHeldOff::EndingHeldOff(const platform::Host& host, console::LogSink& log,
                             std::filesystem::path own, std::filesystem::path away)
    : host_(host), log_(log), own_(std::move(own)), away_(std::move(away)) {
  const auto set =
      host_.system.SetControlHandler([this](ControlEvent event) { return Answer(event); });
  if (!set) log_.LogWarn("Update: Ctrl+C cannot be held off. Error: {}", set.error());
}

EndingHeldOff::~EndingHeldOff() {
  host_.system.RemoveControlHandler();
}

bool EndingHeldOff::Answer(ControlEvent event) {
  if (event == ControlEvent::interrupt || event == ControlEvent::interrupt_by_break) {
    ++refusals_;
    const std::lock_guard lock(log_.ConsoleLock());
    host_.console.Write(platform::StandardStream::error,
                        "[WARN] VOSK.exe is being replaced and cannot be ended now.\n");
    return true;
  }
  // A copy, because an uninstaller that is still at work removes what it finds under this name:
  // what was moved aside stays for the next boot.
  static_cast<void>(host_.files.Copy(away_, own_));
  return false;
}

void EndingHeldOff::TellOfRefusals() {
  const int refusals = refusals_.exchange(0);
  if (refusals == 0) return;
  log_.LogWarn("Update: Refused to end {} time(s) (Ctrl+C) while VOSK.exe was out of its place.",
               refusals);
}

}  // namespace vosk::install
