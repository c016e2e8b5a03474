// The contract tests against Windows. The program is its own child as well:
//   contract_tests.exe --child EXIT_CODE MILLISECONDS
#include <fmt/format.h>
#include <windows.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "platform/windows/wide.h"
#include "platform/windows/windows_host.h"
#include "tests/contract/host_under_test.h"
#include "text/utf.h"

namespace vosk::contract {
namespace {

// Returns the path as Wine's host spells it; empty on Windows itself.
std::string UnixName(const std::filesystem::path& path) {
  using Converter = char*(CDECL*)(const wchar_t*);
  const auto convert = reinterpret_cast<Converter>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  char* name = convert != nullptr ? convert(path.c_str()) : nullptr;
  const std::string unix_name = name != nullptr ? name : "";
  ::HeapFree(::GetProcessHeap(), 0, name);
  return unix_name;
}

class WindowsSide : public HostUnderTest {
 public:
  platform::Host Bundle() override { return host_.Bundle(); }

  bool LinkDirectory(const std::filesystem::path& link,
                     const std::filesystem::path& target) override {
    const bool on_wine = !UnixName(link).empty();
    // A junction needs no privilege; Wine cannot make one, but shows the links of its host as such.
    const std::string command =
        on_wine
            ? fmt::format("start /wait /unix /bin/ln -s {} {}", UnixName(target), UnixName(link))
            : fmt::format("mklink /J \"{}\" \"{}\"", text::PathToUtf8(link),
                          text::PathToUtf8(target));
    return Bundle().processes.RunShellCommand(command) == 0 && Becomes(link, true);
  }

  void RemoveLink(const std::filesystem::path& link) override {
    if (UnixName(link).empty()) {
      ::RemoveDirectoryW(link.c_str());
    } else {
      Bundle().processes.RunShellCommand("start /wait /unix /bin/rm " + UnixName(link));
      Becomes(link, false);
    }
  }

  // Wine does not wait for the programs of its host, whatever the options of "start".
  static bool Becomes(const std::filesystem::path& link, bool there) {
    for (int tries = 0; tries < 200; ++tries) {
      if ((::GetFileAttributesW(link.c_str()) != INVALID_FILE_ATTRIBUTES) == there) return true;
      ::Sleep(50);
    }
    return false;
  }

  std::string WithOutputTo(Output output, const std::function<void()>& writes) override {
    const bool on_screen = output == Output::screen;
    const std::filesystem::path file = *Bundle().system.TempPath() / L"vosk-contract-output.txt";
    const HANDLE target = output == Output::nowhere ? nullptr
                          : on_screen               ? Open(L"CONOUT$", OPEN_EXISTING)
                                                    : Open(file, CREATE_ALWAYS);
    const HANDLE found = ::GetStdHandle(STD_OUTPUT_HANDLE);
    ::SetStdHandle(STD_OUTPUT_HANDLE, target);
    writes();
    ::SetStdHandle(STD_OUTPUT_HANDLE, found);
    const std::string shown = on_screen ? FirstLinesOf(target) : "";
    ::CloseHandle(target);
    const std::string arrived = on_screen ? shown : BytesOf(file);
    ::DeleteFileW(file.c_str());
    return arrived;
  }

  void PressUpAndM() override {
    const HANDLE keyboard = Open(L"CONIN$", OPEN_EXISTING);
    for (const auto& [key, character] : {std::pair(VK_UP, L'\0'), std::pair(int{'M'}, L'm')}) {
      INPUT_RECORD record{.EventType = KEY_EVENT, .Event = {}};
      record.Event.KeyEvent.wRepeatCount = 1;
      record.Event.KeyEvent.wVirtualKeyCode = static_cast<WORD>(key);
      record.Event.KeyEvent.wVirtualScanCode =
          static_cast<WORD>(::MapVirtualKeyW(static_cast<UINT>(key), MAPVK_VK_TO_VSC));
      record.Event.KeyEvent.uChar.UnicodeChar = character;
      record.Event.KeyEvent.dwControlKeyState = key == VK_UP ? ENHANCED_KEY : 0;
      for (const BOOL down : {TRUE, FALSE}) {
        record.Event.KeyEvent.bKeyDown = down;
        DWORD written = 0;
        EXPECT_TRUE(::WriteConsoleInputW(keyboard, &record, 1, &written));
      }
    }
    ::CloseHandle(keyboard);
  }

  void PressControlC() override { EXPECT_TRUE(::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)); }

  // The box runs this thread's messages, also those of a timer.
  void CloseNextBox() override {
    ::SetTimer(nullptr, 0, 100, [](HWND, UINT, UINT_PTR, DWORD) {
      ::PostMessageW(::GetActiveWindow(), WM_CLOSE, 0, 0);
    });
  }

  // The build puts the packages beside the program.
  std::filesystem::path Package(int number) override {
    return Bundle().system.ModulePath()->parent_path() / fmt::format("contract_{}.msi", number);
  }

 private:
  static HANDLE Open(const std::filesystem::path& name, DWORD disposition) {
    return ::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  }

  static std::string FirstLinesOf(HANDLE screen) {
    std::string lines;
    for (SHORT row = 0; row < 2; ++row) {
      std::array<wchar_t, 40> cells{};
      DWORD read = 0;
      ::ReadConsoleOutputCharacterW(screen, cells.data(), cells.size(), {0, row}, &read);
      const std::wstring_view line(cells.data(), read);
      lines += platform::windows::FromWide(line.substr(0, line.find_last_not_of(L' ') + 1)) + '\n';
    }
    return lines;
  }

  platform::windows::WindowsHost host_;
};

}  // namespace

std::unique_ptr<HostUnderTest> MakeHostUnderTest() {
  return std::make_unique<WindowsSide>();
}

// Takes the console of a child: it has no window, needs no display and accepts keys.
void TakeConsole() {
  platform::windows::WindowsHost host;
  auto& processes = host.Bundle().processes;
  ::FreeConsole();
  const auto child = processes.Start(
      {.command_line = fmt::format("\"{}\" --child 0 60000",
                                   text::PathToUtf8(*host.Bundle().system.ModulePath())),
       .console = platform::ConsoleOfChild::no_window});
  while (child && !::AttachConsole(child->pid)) ::Sleep(10);
  if (child) static_cast<void>(processes.Terminate(child->handle, 0));
}

}  // namespace vosk::contract

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--child") == 0) {
    ::Sleep(static_cast<DWORD>(std::atol(argv[3])));
    // The code may use all 32 bits.
    ::ExitProcess(static_cast<UINT>(std::strtoul(argv[2], nullptr, 10)));
  }
  vosk::contract::TakeConsole();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
