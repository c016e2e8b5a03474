// The picture that builds up on the console while VOSK starts.
#pragma once

#include <chrono>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace vosk::console {

inline constexpr int kBootFrames = 24;
inline constexpr std::chrono::milliseconds kBootFrameTime{85};

// Returns some of the status phrases, each at most once, in the order in which they appear.
[[nodiscard]] std::vector<std::string_view> ChooseBootPhrases(std::mt19937& random);

// Returns frame 0 to kBootFrames - 1 for a window of that size; the last one shows every text
// whole. The bottom row stays free. A window too small for the framed box gets the texts alone.
[[nodiscard]] std::string BuildBootFrame(int frame, const std::vector<std::string_view>& phrases,
                                         int window_width, int window_height, std::mt19937& random);

// Clears the window, plays all frames and leaves the last one there; takes two seconds. Returns at
// once if the console does not accept escape sequences.
void PlayBootAnimation(platform::Console& console, platform::Clock& clock, LogSink& log,
                       std::mt19937& random);

}  // namespace vosk::console
