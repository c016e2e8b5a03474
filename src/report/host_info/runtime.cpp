#include "report/host_info/runtime.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "report/host_info/file_version.h"
#include "report/host_info/registry_values.h"
#include "report/host_info/runtime_rules.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

using platform::RegistryKey;
using platform::Result;

struct Redistributable {
  const char* key_path;
  std::string_view label;
};

constexpr std::array kRedistributables{
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\14.0\VC\Runtimes\x64)",
                    "Visual C++ 2015-2022 x64"},
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\14.0\VC\Runtimes\x86)",
                    "Visual C++ 2015-2022 x86"},
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\12.0\VC\Runtimes\x64)",
                    "Visual C++ 2013 x64"},
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\12.0\VC\Runtimes\x86)",
                    "Visual C++ 2013 x86"},
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\11.0\VC\Runtimes\x64)",
                    "Visual C++ 2012 x64"},
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\11.0\VC\Runtimes\x86)",
                    "Visual C++ 2012 x86"},
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\10.0\VC\VCRedist\x64)",
                    "Visual C++ 2010 x64"},
    Redistributable{R"(SOFTWARE\Microsoft\VisualStudio\10.0\VC\VCRedist\x86)",
                    "Visual C++ 2010 x86"},
    Redistributable{R"(SOFTWARE\WOW6432Node\Microsoft\VisualStudio\14.0\VC\Runtimes\x86)",
                    "Visual C++ 2015-2022 x86 (WOW64)"},
    Redistributable{R"(SOFTWARE\WOW6432Node\Microsoft\VisualStudio\12.0\VC\Runtimes\x86)",
                    "Visual C++ 2013 x86 (WOW64)"},
};

constexpr std::array kRuntimeLibraries{
    "msvcp140.dll",
    "vcruntime140.dll",
    "vcruntime140_1.dll",
    "msvcp120.dll",
    "msvcr120.dll",
    "msvcp110.dll",
    "msvcr110.dll",
    "msvcp100.dll",
    "msvcr100.dll",
    "ucrtbase.dll",
    "api-ms-win-crt-runtime-l1-1-0.dll",
};

Result<RegistryKey> OpenKey(const SectionContext& context, const std::string& path) {
  return context.registry.Open(path, platform::registry_access::kRead);
}

// A number, or nothing if there is none; on a failure, which is logged, what the report says in its
// place.
using FoundNumber = tl::expected<std::optional<std::uint32_t>, std::string>;

FoundNumber FindNumber(const SectionContext& context, const RegistryKey& key,
                       std::string_view key_path, const std::string& name) {
  const auto number = ReadNumber(context.registry, key, name);
  if (number) return *number;
  if (number.error() == platform::kFileNotFound) return std::nullopt;
  context.log.LogError("Failed to read registry value HKLM\\{}\\{}: {}", key_path, name,
                       number.error());
  return tl::unexpected(fmt::format("<Registry read error {}>", name));
}

// The key may be missing as well.
FoundNumber FindNumber(const SectionContext& context, const std::string& key_path,
                       const std::string& name) {
  const auto key = OpenKey(context, key_path);
  if (key) return FindNumber(context, *key, key_path, name);
  if (key.error() == platform::kFileNotFound) return std::nullopt;
  context.log.LogError("Failed to open registry key HKLM\\{}: {}", key_path, key.error());
  return tl::unexpected(fmt::format("<Error opening registry key: {}>", key.error()));
}

// Whether a line was written: there is none for what is not installed.
bool WriteRedistributable(const SectionContext& context, const Redistributable& redistributable) {
  const auto& [path, label] = redistributable;
  const auto key = OpenKey(context, path);
  if (!key && key.error() == platform::kFileNotFound) return false;
  if (!key) {
    context.log.LogError("Failed to open registry key HKLM\\{}: {}", path, key.error());
    fmt::print(context.out, "{}: <Error opening registry key: {}>\n", label, key.error());
    return true;
  }
  const auto installed = FindNumber(context, *key, path, "Installed");
  if (!installed) {
    fmt::print(context.out, "{}: {}\n", label, installed.error());
    return true;
  }
  if (*installed != 1u) return false;
  const auto version = ReadText(context.registry, *key, "Version");
  fmt::print(context.out, "{}: Installed{}\n", label,
             version ? fmt::format(" (Version: {})", *version) : "");
  return true;
}

void WriteRuntimeLibrary(const SectionContext& context, const std::filesystem::path& path) {
  const std::string name = text::PathToUtf8(path.filename());
  const auto exists = context.files.Exists(path);
  if (!exists) {
    context.log.LogError("Failed to look for '{}': {}", path, exists.error());
    fmt::print(context.out, "{}: <Error looking for the file: {}>\n", name,
               exists.error().code.value);
    return;
  }
  if (!*exists) return;
  fmt::print(context.out, "{}: Found (Version: {})\n", name,
             FileVersionText(path, context.machine, context.log));
}

Result<std::vector<std::string>> SubKeys(platform::Registry& registry, const RegistryKey& key) {
  std::vector<std::string> names;
  for (std::uint32_t index = 0;; ++index) {
    auto name = registry.SubKeyName(key, index);
    if (!name && name.error() == platform::kNoMoreItems) return names;
    if (!name) return tl::unexpected(name.error());
    names.push_back(*std::move(name));
  }
}

constexpr std::string_view kDotNetKey = R"(SOFTWARE\Microsoft\NET Framework Setup\NDP)";

}  // namespace

void WriteLoadedModules(const SectionContext& context, const ProcessModules& modules) {
  fmt::print(context.out, "Actually Loaded by VELDRAN Core Process:\n");
  if (modules.empty()) {
    fmt::print(context.out,
               "  <No module information captured - process may have crashed before capture>\n");
  }
  for (const ProcessModule& module : modules) {
    fmt::print(context.out, "{} (Version: {})\n", module.name, module.version);
  }
  fmt::print(context.out, "Detected Runtime Version:\n{}\n", DetectRuntime(modules));
}

void WriteRedistributables(const SectionContext& context) {
  fmt::print(context.out, "\nVisual C++ Redistributables:\n");
  bool any = false;
  for (const Redistributable& redistributable : kRedistributables) {
    any = WriteRedistributable(context, redistributable) || any;
  }
  if (!any) {
    fmt::print(context.out, "  No Visual C++ Redistributables detected via registry\n");
  }
}

void WriteRuntimeLibraries(const SectionContext& context) {
  fmt::print(context.out, "\nRuntime DLLs in System:\n");
  const auto directory = context.machine.SystemDirectory();
  if (!directory) {
    context.log.LogError("Failed to get system directory: {}", directory.error());
    fmt::print(context.out, "  <Failed to get system directory>\n");
    return;
  }
  for (const char* name : kRuntimeLibraries) WriteRuntimeLibrary(context, *directory / name);
}

void WriteDotNetVersions(const SectionContext& context) {
  fmt::print(context.out, "\n.NET Framework Versions:\n");
  const auto key = OpenKey(context, std::string(kDotNetKey));
  auto names = key ? SubKeys(context.registry, *key) : tl::unexpected(key.error());
  if (!names) {
    context.log.LogError("Failed to query .NET Framework registry: {}", names.error());
    fmt::print(context.out, "  <Failed to query .NET Framework registry>\n");
    return;
  }
  std::ranges::sort(*names);
  for (const std::string& name : *names) {
    if (!IsOlderDotNetKey(name)) continue;
    const auto install = FindNumber(context, fmt::format("{}\\{}", kDotNetKey, name), "Install");
    if (!install) {
      fmt::print(context.out, "  .NET Framework {}: {}\n", name, install.error());
    } else if (*install == 1u) {
      fmt::print(context.out, "  .NET Framework {}: Installed\n", name);
    }
  }
  const auto release = FindNumber(context, fmt::format("{}\\v4\\Full", kDotNetKey), "Release");
  if (!release) {
    fmt::print(context.out, "  .NET Framework 4.x: {}\n", release.error());
  } else if (*release) {
    fmt::print(context.out, "  .NET Framework 4.x: {} (Release: {})\n", DotNetName(**release),
               **release);
  }
}

}  // namespace vosk::report
