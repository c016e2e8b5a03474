// Commands for the sample Core. It is started without arguments, so they come through a file in
// its working directory: "core_command.txt" for whichever Core sees it first, or
// "core_command.<PID>.txt" for one of several. The file is removed when it is taken, may hold
// several lines, and may be there before the Core starts.
#pragma once

#include <string>
#include <vector>

namespace vosk::tools {

struct Command {
  std::string verb;
  unsigned long number = 0;  // 0 if the line has none
};

// Returns the lines of a waiting command file, in order; empty if there is none.
std::vector<Command> TakeCommands(unsigned long pid);

// exit N    ends at once with exit code N
// crash     dies of an access violation
// hang      does nothing any more, but does not end
// protect   denies everyone the right to terminate this process from now on
// wait N    sleeps N milliseconds, then goes on with the next line
// watched   goes on with the next line once a debugger is attached
// Returns false if the line is none of these.
bool Obey(const Command& command);

}  // namespace vosk::tools
