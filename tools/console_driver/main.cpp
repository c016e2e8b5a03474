// Starts a program in a console window of its own, as an operator would, types into it and reads
// the boxes that it shows.
//
// usage: console_driver start [--out FILE] [--err FILE] [--cwd DIR] [--env NAME=VALUE]... --
//                       PROGRAM [ARGUMENT]...
//        console_driver press PID KEY...
//        console_driver read TITLE
//
// "start" prints "pid N" when the program runs and "exit N" when it has ended. "press" presses keys
// in the console of a running program; each is one character or one of the words up, down, enter.
// "read" prints the texts of the parts of the window with that title.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Order {
  std::wstring command_line;
  std::optional<std::wstring> out;
  std::optional<std::wstring> err;
  std::optional<std::wstring> directory;
};

// Takes one option with its value from the front of the arguments; returns false if it is unknown.
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
  int i = 2;
  while (i + 1 < count && std::wstring_view(arguments[i]) != L"--") {
    if (!TakeOption(arguments[i], arguments[i + 1], order)) return std::nullopt;
    i += 2;
  }
  // Arguments are quoted; none that the drivers pass contains a quote.
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

// Returns the key-down event for a name or a character; an arrow has no character.
KEY_EVENT_RECORD KeyOf(std::wstring_view name) {
  KEY_EVENT_RECORD key{};
  key.bKeyDown = TRUE;
  key.wRepeatCount = 1;
  if (name == L"up" || name == L"down") {
    key.wVirtualKeyCode = name == L"up" ? VK_UP : VK_DOWN;
    key.dwControlKeyState = ENHANCED_KEY;
  } else {
    key.uChar.UnicodeChar = name == L"enter" ? L'\r' : name.front();
    key.wVirtualKeyCode = LOBYTE(VkKeyScanW(key.uChar.UnicodeChar));
  }
  key.wVirtualScanCode = static_cast<WORD>(MapVirtualKeyW(key.wVirtualKeyCode, MAPVK_VK_TO_VSC));
  return key;
}

// Presses keys in the console of a process. Prints a message and returns false if that fails.
bool PressKeys(DWORD pid, std::span<wchar_t*> names) {
  FreeConsole();
  if (!AttachConsole(pid)) {
    std::fprintf(stderr, "Cannot attach to the console: error %lu\n", GetLastError());
    return false;
  }
  const HANDLE input =
      CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, 0, nullptr);
  if (input == INVALID_HANDLE_VALUE) {
    std::fprintf(stderr, "Cannot open the console's input: error %lu\n", GetLastError());
    return false;
  }
  std::vector<INPUT_RECORD> records;
  for (const wchar_t* name : names) {
    INPUT_RECORD record{};
    record.EventType = KEY_EVENT;
    record.Event.KeyEvent = KeyOf(name);
    records.push_back(record);
    record.Event.KeyEvent.bKeyDown = FALSE;
    records.push_back(record);
  }
  const DWORD count = static_cast<DWORD>(records.size());
  DWORD written = 0;
  const BOOL done = WriteConsoleInputW(input, records.data(), count, &written);
  if (!done) std::fprintf(stderr, "Cannot press the keys: error %lu\n", GetLastError());
  CloseHandle(input);
  FreeConsole();
  return done && written == count;
}

BOOL CALLBACK PrintText(HWND part, LPARAM) {
  constexpr UINT kLimitMilliseconds = 5000;
  wchar_t text[2048] = L"";
  DWORD_PTR length = 0;
  // Asks by message, because the part belongs to another program.
  SendMessageTimeoutW(part, WM_GETTEXT, std::size(text), reinterpret_cast<LPARAM>(text),
                      SMTO_ABORTIFHUNG, kLimitMilliseconds, &length);
  char utf8[3 * std::size(text)] = "";
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8, sizeof utf8, nullptr, nullptr);
  if (length > 0) std::printf("%s\n", utf8);
  return TRUE;
}

int ReadWindow(const wchar_t* title) {
  const HWND window = FindWindowW(nullptr, title);
  if (window == nullptr) {
    std::fprintf(stderr, "There is no such window: error %lu\n", GetLastError());
    return 1;
  }
  EnumChildWindows(window, PrintText, 0);
  return 0;
}

int RunInNewConsole(const Order& order) {
  const std::optional<PROCESS_INFORMATION> process = Start(order);
  if (!process) return 1;
  std::printf("pid %lu\n", process->dwProcessId);
  std::fflush(stdout);
  WaitForSingleObject(process->hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process->hProcess, &code);
  std::printf("exit %lu\n", code);
  return 0;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  const std::wstring_view verb = count > 1 ? arguments[1] : L"";
  if (verb == L"press" && count > 3) {
    const DWORD pid = std::wcstoul(arguments[2], nullptr, 10);
    return PressKeys(pid, {arguments + 3, arguments + count}) ? 0 : 1;
  }
  if (verb == L"read" && count == 3) return ReadWindow(arguments[2]);
  const std::optional<Order> order = Parse(count, arguments);
  if (verb == L"start" && order) return RunInNewConsole(*order);
  std::fprintf(stderr,
               "usage: console_driver start [--out FILE] [--err FILE] [--cwd DIR] "
               "[--env NAME=VALUE]... -- PROGRAM [ARGUMENT]...\n"
               "       console_driver press PID KEY...\n"
               "       console_driver read TITLE\n");
  return 2;
}
