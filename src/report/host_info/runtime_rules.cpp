#include "report/host_info/runtime_rules.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "text/utf.h"

namespace vosk::report {
namespace {

bool ContainsAny(std::span<const ProcessModule> modules,
                 std::initializer_list<std::string_view> beginnings) {
  return std::ranges::any_of(modules, [&](const ProcessModule& module) {
    const std::string name = text::ToLowerAscii(module.name);
    return std::ranges::any_of(
        beginnings, [&](std::string_view beginning) { return name.starts_with(beginning); });
  });
}

}  // namespace

bool IsRuntimeModule(std::string_view file_name) {
  const std::string name = text::ToLowerAscii(file_name);
  for (const std::string_view beginning :
       {"msvcp", "msvcr", "vcruntime", "ucrtbase", "api-ms-win-crt", "concrt", "vccorlib"}) {
    if (name.starts_with(beginning)) return true;
  }
  return name == "kernel32.dll" || name == "kernelbase.dll" || name == "ntdll.dll";
}

std::string DetectRuntime(std::span<const ProcessModule> modules) {
  if (ContainsAny(modules, {"msvcp140", "vcruntime140"})) {
    return "  Using: Visual C++ 2015-2022 Runtime";
  }
  if (ContainsAny(modules, {"msvcp120"})) return "  Using: Visual C++ 2013 Runtime";
  if (ContainsAny(modules, {"msvcp110"})) return "  Using: Visual C++ 2012 Runtime";
  if (ContainsAny(modules, {"msvcp100"})) return "  Using: Visual C++ 2010 Runtime";
  return "  Could not determine specific Visual C++ version from loaded modules";
}

std::string DotNetName(std::uint32_t release) {
  struct Row {
    std::uint32_t at_least;
    std::string_view name;
  };
  static constexpr std::array kRows{
      Row{533320, "4.8.1"}, Row{528040, "4.8"},   Row{461808, "4.7.2"}, Row{461308, "4.7.1"},
      Row{460798, "4.7"},   Row{394802, "4.6.2"}, Row{394254, "4.6.1"}, Row{393295, "4.6"},
      Row{379893, "4.5.2"}, Row{378675, "4.5.1"}, Row{378389, "4.5"},
  };
  const auto row = std::ranges::find_if(
      kRows, [&](const Row& candidate) { return release >= candidate.at_least; });
  return row == kRows.end() ? "4.x" : std::string(row->name);
}

bool IsOlderDotNetKey(std::string_view key) {
  if (key.size() < 2 || (key[0] != 'v' && key[0] != 'V')) return false;
  return key[1] >= '1' && key[1] <= '3';
}

}  // namespace vosk::report
