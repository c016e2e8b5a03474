#pragma once

namespace vosk::platform {

class Clock;
class Console;
class DumpWriter;
class Files;
class Machine;
class Processes;
class Registry;
class System;

// Everything the supervisor asks of the operating system. The owner outlives the supervisor.
struct Host {
  Clock& clock;
  Console& console;
  DumpWriter& dump_writer;
  Files& files;
  Machine& machine;
  Processes& processes;
  Registry& registry;
  System& system;
};

}  // namespace vosk::platform
