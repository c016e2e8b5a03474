#include "command_line.h"

#include <windows.h>

#include <dbghelp.h>

#include <cwchar>
#include <string_view>
#include <vector>

namespace vosk::tools {
namespace {

std::optional<unsigned long> Number(const wchar_t* text, int base) {
  wchar_t* end = nullptr;
  const unsigned long value = std::wcstoul(text, &end, base);
  if (end == text || *end != L'\0') return std::nullopt;
  return value;
}

}  // namespace

std::optional<MonitorOptions> ParseCommandLine(std::span<const wchar_t* const> arguments) {
  std::optional<unsigned long> type;
  bool on_exception = false;
  std::vector<const wchar_t*> operands;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::wstring_view argument = arguments[i];
    if (argument == L"-accepteula") {
      continue;
    } else if (argument == L"-e") {
      on_exception = true;
    } else if (argument == L"-ma" && !type) {
      type = MiniDumpWithFullMemory;
    } else if (argument == L"-mc" && !type && i + 1 < arguments.size()) {
      type = Number(arguments[++i], 16);
      if (!type) return std::nullopt;
    } else if (!argument.starts_with(L"-")) {
      operands.push_back(arguments[i]);
    } else {
      return std::nullopt;
    }
  }
  if (!type || !on_exception || operands.size() != 2) return std::nullopt;
  const std::optional<unsigned long> pid = Number(operands[0], 10);
  if (!pid) return std::nullopt;
  return MonitorOptions{*type, *pid, operands[1]};
}

}  // namespace vosk::tools
