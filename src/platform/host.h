#pragma once

namespace vosk::platform {

class Clock;
class Console;
class DumpWriter;
class Files;
class Installer;
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
  Installer& installer;
  Machine& machine;
  Processes& processes;
  Registry& registry;
  System& system;
};

}  // namespace vosk::platform
