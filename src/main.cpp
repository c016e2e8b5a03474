#include <string>
#include <vector>

#include "platform/windows/windows_host.h"
#include "supervisor/network.h"
#include "supervisor/supervisor.h"
#include "text/utf.h"

int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) {
    const std::wstring argument(argv[i]);
    arguments.push_back(vosk::text::WideToUtf8(std::u16string(argument.begin(), argument.end())));
  }
  vosk::platform::windows::WindowsHost host;
  vosk::supervisor::CurlNetwork network;
  return vosk::supervisor::Supervisor(host.Bundle(), network).Run(arguments);
}
