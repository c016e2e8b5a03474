#include "platform/console.h"

#include <conio.h>
#include <windows.h>

#include "platform/windows/error_text.h"
#include "platform/windows/parts.h"
#include "platform/windows/unique_handle.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

HANDLE HandleOf(StandardStream stream) {
  if (stream == StandardStream::input) return ::GetStdHandle(STD_INPUT_HANDLE);
  return ::GetStdHandle(stream == StandardStream::output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

HANDLE Screen() {
  return HandleOf(StandardStream::output);
}

Result<> Judge(BOOL succeeded) {
  if (!succeeded) return tl::unexpected(LastError());
  return {};
}

// Standard input may lead elsewhere, so that the keyboard is opened for the call.
template <typename Call>
Result<> OnConsole(StandardStream stream, Call call) {
  if (stream != StandardStream::input) return Judge(call(HandleOf(stream)));
  const FileHandle keyboard(::CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
  return Judge(call(keyboard.Get()));
}

std::string WithCarriageReturns(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 8);
  for (const char c : text) {
    if (c == '\n') out += '\r';
    out += c;
  }
  return out;
}

class WindowsConsole : public Console {
 public:
  Result<std::uint32_t> OutputCodePage() override {
    const UINT code_page = ::GetConsoleOutputCP();
    if (code_page == 0) return tl::unexpected(LastError());
    return code_page;
  }

  Result<> SetOutputCodePage(std::uint32_t code_page) override {
    return Judge(::SetConsoleOutputCP(code_page));
  }

  bool HasStream(StandardStream stream) override {
    const HANDLE handle = HandleOf(stream);
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
  }

  Result<std::uint32_t> Mode(StandardStream stream) override {
    DWORD mode = 0;
    const auto asked =
        OnConsole(stream, [&mode](HANDLE handle) { return ::GetConsoleMode(handle, &mode); });
    return asked.map([&]() -> std::uint32_t { return mode; });
  }

  Result<> SetMode(StandardStream stream, std::uint32_t mode) override {
    return OnConsole(stream, [mode](HANDLE handle) { return ::SetConsoleMode(handle, mode); });
  }

  Result<ConsoleInfo> Info() override {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!::GetConsoleScreenBufferInfo(Screen(), &info)) return tl::unexpected(LastError());
    return ConsoleInfo{.left = info.srWindow.Left,
                       .top = info.srWindow.Top,
                       .right = info.srWindow.Right,
                       .bottom = info.srWindow.Bottom,
                       .attributes = info.wAttributes};
  }

  Result<> SetTextAttributes(std::uint16_t attributes) override {
    return Judge(::SetConsoleTextAttribute(Screen(), attributes));
  }

  Result<> SetCursor(int column, int row) override {
    const COORD position{static_cast<SHORT>(column), static_cast<SHORT>(row)};
    return Judge(::SetConsoleCursorPosition(Screen(), position));
  }

  Result<> SetCursorVisible(bool visible) override {
    CONSOLE_CURSOR_INFO info{};
    if (!::GetConsoleCursorInfo(Screen(), &info)) return tl::unexpected(LastError());
    info.bVisible = visible;
    return Judge(::SetConsoleCursorInfo(Screen(), &info));
  }

  void Write(StandardStream stream, std::string_view text) override {
    const HANDLE handle = HandleOf(stream);
    const std::string lines = WithCarriageReturns(text);
    DWORD done = 0;
    if (DWORD mode = 0; ::GetConsoleMode(handle, &mode)) {
      // Written in one piece and as UTF-16, so that no multi-byte character is torn apart.
      const std::wstring wide = ToWide(lines);
      ::WriteConsoleW(handle, wide.data(), static_cast<DWORD>(wide.size()), &done, nullptr);
    } else {
      ::WriteFile(handle, lines.data(), static_cast<DWORD>(lines.size()), &done, nullptr);
    }
  }

  bool KeyWaiting() override { return ::_kbhit() != 0; }
  int ReadKey() override { return ::_getch(); }
};

}  // namespace

std::unique_ptr<Console> MakeConsole() {
  return std::make_unique<WindowsConsole>();
}

}  // namespace vosk::platform::windows
