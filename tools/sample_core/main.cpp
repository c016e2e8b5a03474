// Plays VELDRAN Core: runs, writes its version and its logs into its stats directory, and does on
// command what a Core may do to its supervisor.
#include <windows.h>

#include <cstdio>
#include <exception>

#include "commands.h"
#include "stats_writer.h"

namespace {

constexpr DWORD kPollMilliseconds = 100;
constexpr int kPollsPerTick = 10;

[[noreturn]] void Run() {
  const DWORD pid = GetCurrentProcessId();
  vosk::tools::StatsWriter stats(pid);
  stats.Note("started");
  std::printf("VELDRAN Core (sample), PID %lu. Stats in %s\n", pid,
              stats.directory().string().c_str());
  for (int poll = 0;; ++poll) {
    if (poll % kPollsPerTick == 0) stats.Tick();
    for (const vosk::tools::Command& command : vosk::tools::TakeCommands(pid)) {
      stats.Note(("command: " + command.verb).c_str());
      if (!vosk::tools::Obey(command)) stats.Note("unknown command");
    }
    Sleep(kPollMilliseconds);
  }
}

}  // namespace

int wmain() {
  try {
    Run();
  } catch (const std::exception& reason) {
    std::fprintf(stderr, "VELDRAN Core (sample): %s\n", reason.what());
    return 1;
  }
}
