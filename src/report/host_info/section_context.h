#pragma once

#include <ostream>

#include "console/log.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "platform/system.h"

namespace vosk::report {

// What a section of the report writes to and asks. What it cannot find out leaves a line in angle
// brackets in its place and an error in the log; the rest of it follows. The references outlive the
// report.
struct SectionContext {
  std::ostream& out;
  console::LogSink& log;
  platform::Files& files;
  platform::Machine& machine;
  platform::Registry& registry;
  platform::System& system;
};

}  // namespace vosk::report
