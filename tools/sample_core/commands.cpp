#include "commands.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace vosk::tools {
namespace {

constexpr DWORD kDebuggerPollMilliseconds = 20;

std::vector<Command> Parse(std::istream& file) {
  std::vector<Command> commands;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    Command command;
    words >> command.verb >> command.number;
    if (!command.verb.empty()) commands.push_back(command);
  }
  return commands;
}

// Both are volatile, or the compiler would drop a store that nothing reads.
void Crash() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
}

// Every new handle is opened without PROCESS_TERMINATE; handles that others hold keep it.
void DenyTermination() {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const wchar_t* rules = L"D:(D;;0x0001;;;WD)(A;;0x1FFFFE;;;WD)";
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(rules, SDDL_REVISION_1, &descriptor,
                                                            nullptr)) {
    return;
  }
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL list = nullptr;
  GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted);
  SetSecurityInfo(GetCurrentProcess(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                  nullptr, list, nullptr);
  LocalFree(descriptor);
}

}  // namespace

std::vector<Command> TakeCommands(unsigned long pid) {
  const std::string own = "core_command." + std::to_string(pid) + ".txt";
  for (const std::string& name : {own, std::string("core_command.txt")}) {
    std::error_code gone;
    // A shell creates the file before it writes the order into it.
    if (std::filesystem::file_size(name, gone) == 0 || gone) continue;
    // Renaming it first decides between two Cores that see the same file.
    const std::string taken = own + ".taken";
    std::filesystem::rename(name, taken, gone);
    if (gone) continue;
    std::ifstream file(taken);
    std::vector<Command> commands = Parse(file);
    file.close();
    std::filesystem::remove(taken, gone);
    return commands;
  }
  return {};
}

bool Obey(const Command& command) {
  if (command.verb == "exit") {
    ExitProcess(command.number);
  } else if (command.verb == "crash") {
    Crash();
  } else if (command.verb == "hang") {
    Sleep(INFINITE);
  } else if (command.verb == "protect") {
    DenyTermination();
  } else if (command.verb == "wait") {
    Sleep(command.number);
  } else if (command.verb == "watched") {
    while (!IsDebuggerPresent()) Sleep(kDebuggerPollMilliseconds);
  } else {
    return false;
  }
  return true;
}

}  // namespace vosk::tools
