// The contract tests against Windows. The program is its own child as well:
//   contract_tests.exe --child EXIT_CODE MILLISECONDS
#include <fmt/format.h>
#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "platform/windows/windows_host.h"
#include "tests/contract/host_under_test.h"
#include "text/utf.h"

namespace vosk::contract {
namespace {

// The path as Wine's host spells it; empty on Windows itself.
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
    // A junction needs no privilege; Wine makes none, but shows the links of its host as such.
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

  // Wine does not wait for the programs of its host, whatever "start" is told.
  static bool Becomes(const std::filesystem::path& link, bool there) {
    for (int tries = 0; tries < 200; ++tries) {
      if ((::GetFileAttributesW(link.c_str()) != INVALID_FILE_ATTRIBUTES) == there) return true;
      ::Sleep(50);
    }
    return false;
  }

  std::string RedirectOutput(const std::function<void()>& writes) override {
    const std::filesystem::path path = *Bundle().system.TempPath() / L"vosk-contract-output.txt";
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    const HANDLE found = ::GetStdHandle(STD_OUTPUT_HANDLE);
    ::SetStdHandle(STD_OUTPUT_HANDLE, file);
    writes();
    ::SetStdHandle(STD_OUTPUT_HANDLE, found);
    ::CloseHandle(file);
    const std::string arrived = BytesOf(path);
    ::DeleteFileW(path.c_str());
    return arrived;
  }

 private:
  platform::windows::WindowsHost host_;
};

}  // namespace

std::unique_ptr<HostUnderTest> MakeHostUnderTest() {
  return std::make_unique<WindowsSide>();
}

}  // namespace vosk::contract

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--child") == 0) {
    ::Sleep(static_cast<DWORD>(std::atol(argv[3])));
    // The code may use all 32 bits.
    ::ExitProcess(static_cast<UINT>(std::strtoul(argv[2], nullptr, 10)));
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
