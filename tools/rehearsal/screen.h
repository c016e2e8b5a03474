// VOSK's screen in the terminal of whoever rehearses.
#pragma once

#include "tools/rehearsal/life.h"

namespace vosk::rehearsal {

// Lets the life's console draw to standard output, `speed` times as fast as the time that passes
// there. The machine's window takes the size of this terminal.
void WatchScreen(Life& life, double speed);

}  // namespace vosk::rehearsal
