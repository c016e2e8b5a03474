// Starts a program in a console window of its own, as an operator would, and types into it.
//
// usage: console_driver [--out FILE] [--err FILE] [--cwd DIR] [--env NAME=VALUE]... -- PROGRAM
//                       [ARGUMENT]...
//
// Prints "pid N" when the program runs and "exit N" when it has ended. Each line on standard input
// is an order: "key C" presses the key of the character C, "terminate" ends the program the hard
// way. The end of standard input changes nothing.
#include <windows.h>

#include <cstdio>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace {

struct Order {
  std::wstring command_line;
  std::optional<std::wstring> out;
  std::optional<std::wstring> err;
  std::optional<std::wstring> directory;
};

// Takes one option with its value from the front of the arguments; false for an unknown one.
bool TakeOption(std::wstring_view name, const wchar_t* value, Order& order) {
  if (name == L"--out") {
    order.out = value;
  } else if (name == L"--err") {
    order.err = value;
  } else if (name == L"--cwd") {
    order.directory = value;
  } else if (name == L"--env") {
    const std::wstring pair = value;
    const std::size_t equals = pair.find(L'=');
    if (equals == std::wstring::npos) return false;
    SetEnvironmentVariableW(pair.substr(0, equals).c_str(), pair.substr(equals + 1).c_str());
  } else {
    return false;
  }
  return true;
}

std::optional<Order> Parse(int count, wchar_t** arguments) {
  Order order;
  int i = 1;
  while (i + 1 < count && std::wstring_view(arguments[i]) != L"--") {
    if (!TakeOption(arguments[i], arguments[i + 1], order)) return std::nullopt;
    i += 2;
  }
  // Arguments in quotes; none that the drivers pass holds a quote of its own.
  for (++i; i < count; ++i) {
    if (!order.command_line.empty()) order.command_line += L' ';
    order.command_line += L'"' + std::wstring(arguments[i]) + L'"';
  }
  if (order.command_line.empty()) return std::nullopt;
  return order;
}

HANDLE CreateForChild(const std::optional<std::wstring>& path) {
  if (!path) return nullptr;  // the system fills in the new console
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  return CreateFileW(path->c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::optional<PROCESS_INFORMATION> Start(Order order) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  const bool redirected = order.out || order.err;
  if (redirected) startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = CreateForChild(order.out);
  startup.hStdError = CreateForChild(order.err);
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, order.command_line.data(), nullptr, nullptr, redirected,
                      CREATE_NEW_CONSOLE, nullptr,
                      order.directory ? order.directory->c_str() : nullptr, &startup, &process)) {
    std::fprintf(stderr, "Cannot start the program: error %lu\n", GetLastError());
    return std::nullopt;
  }
  return process;
}

// Types one character into the console of a process. False with a message when that fails.
bool PressKey(DWORD pid, char key) {
  FreeConsole();
  if (!AttachConsole(pid)) {
    std::fprintf(stderr, "Cannot attach to the console: error %lu\n", GetLastError());
    return false;
  }
  const HANDLE input =
      CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, 0, nullptr);
  INPUT_RECORD records[2]{};
  for (INPUT_RECORD& record : records) {
    record.EventType = KEY_EVENT;
    record.Event.KeyEvent.bKeyDown = &record == &records[0];
    record.Event.KeyEvent.wRepeatCount = 1;
    record.Event.KeyEvent.wVirtualKeyCode = LOBYTE(VkKeyScanA(key));
    record.Event.KeyEvent.uChar.UnicodeChar = static_cast<wchar_t>(key);
  }
  DWORD written = 0;
  const BOOL done = WriteConsoleInputW(input, records, 2, &written);
  if (!done) std::fprintf(stderr, "Cannot press the key: error %lu\n", GetLastError());
  CloseHandle(input);
  FreeConsole();
  return done && written == 2;
}

void FollowOrders(const PROCESS_INFORMATION& process) {
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.starts_with("key ") && line.size() == 5) {
      if (PressKey(process.dwProcessId, line[4])) std::printf("pressed %c\n", line[4]);
    } else if (line == "terminate") {
      TerminateProcess(process.hProcess, 1);
    } else {
      std::fprintf(stderr, "Unknown order: %s\n", line.c_str());
    }
    std::fflush(stdout);
  }
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  const std::optional<Order> order = Parse(count, arguments);
  if (!order) {
    std::fprintf(stderr, "usage: console_driver [options] -- PROGRAM [ARGUMENT]...\n");
    return 2;
  }
  const std::optional<PROCESS_INFORMATION> process = Start(*order);
  if (!process) return 1;
  std::printf("pid %lu\n", process->dwProcessId);
  std::fflush(stdout);
  std::thread([&process] { FollowOrders(*process); }).detach();
  WaitForSingleObject(process->hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process->hProcess, &code);
  std::printf("exit %lu\n", code);
  std::fflush(stdout);
  // The other thread still waits for orders.
  ExitProcess(0);
}
