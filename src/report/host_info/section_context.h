#pragma once

#include <ostream>

#include "console/log.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "platform/system.h"

namespace vosk::report {

// What a section of the report reads from and writes to. If it cannot find something out, it writes
// a line in angle brackets instead, logs an error and goes on. The references outlive the report.
struct SectionContext {
  std::ostream& out;
  console::LogSink& log;
  platform::Files& files;
  platform::Machine& machine;
  platform::Registry& registry;
  platform::System& system;
};

}  // namespace vosk::report
