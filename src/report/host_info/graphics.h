// The report's section on graphics adapters.
#pragma once

#include <ostream>

#include "console/log.h"
#include "platform/machine.h"

namespace vosk::report {

void WriteGraphics(std::ostream& out, platform::Machine& machine, console::LogSink& log);

}  // namespace vosk::report
