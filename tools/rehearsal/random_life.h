// A year in the life of some machine, drawn by a seed.
#pragma once

#include "tools/rehearsal/life.h"

namespace vosk::rehearsal {

// Fills a fresh life with a year of what machines go through: crashes, now rare, now in bursts;
// refused calls; servers that are down or slow; disks that fill up; bad releases; power cuts;
// clocks that jump. The same seed draws the same year.
void DrawYear(Life& life, unsigned seed);

inline constexpr Duration kYear = std::chrono::hours(365 * 24);

}  // namespace vosk::rehearsal
