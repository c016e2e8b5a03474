#include "console/bar_pulse.h"

namespace vosk::console {

void BarPulse::Beat() {
  const auto now = clock_.SteadyNow();
  if (last_ && now - *last_ < std::chrono::seconds(1)) return;
  if (last_) log_.RedrawStatusBar();
  last_ = now;
}

}  // namespace vosk::console
