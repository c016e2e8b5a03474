#include "report/host_info/system.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "report/host_info/registry_values.h"

namespace vosk::report {
namespace {

constexpr double kBytesPerGibibyte = 1'073'741'824.0;

// Writes label and text, or a substitute line if the value cannot be read.
void WriteValue(const SectionContext& context, const platform::RegistryKey& key, const char* name,
                std::string_view label, std::string_view failure_line) {
  const auto value = ReadText(context.registry, key, name);
  if (value) {
    fmt::print(context.out, "{}{}\n", label, *value);
    return;
  }
  context.log.LogError("Failed to read registry value {}: {}", name, value.error());
  fmt::print(context.out, "{}\n", failure_line);
}

void WriteDisplayVersion(const SectionContext& context, const platform::RegistryKey& key) {
  if (const auto display = ReadText(context.registry, key, "DisplayVersion")) {
    fmt::print(context.out, "OS Version:   {}\n", *display);
    return;
  }
  // Before release 2009 there was no display version.
  if (const auto current = ReadText(context.registry, key, "CurrentVersion")) {
    fmt::print(context.out, "OS Version:   {} (CurrentVersion)\n", *current);
    return;
  }
  context.log.LogError("Failed to read registry values DisplayVersion and CurrentVersion");
  fmt::print(context.out, "OS Version:   <Registry read error DisplayVersion/CurrentVersion>\n");
}

void WriteRevision(const SectionContext& context, const platform::RegistryKey& key) {
  const auto revision = ReadNumber(context.registry, key, "UBR");
  if (revision) {
    fmt::print(context.out, "OS Revision:  {}\n", *revision);
    return;
  }
  context.log.LogError("Failed to read registry value UBR: {}", revision.error());
  fmt::print(context.out, "OS Revision:  <Registry read error UBR>\n");
}

void WriteProcessor(const SectionContext& context) {
  const auto key = context.registry.Open(R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)",
                                         platform::registry_access::kRead);
  if (!key) {
    context.log.LogError("Failed to open CentralProcessor registry key: {}", key.error());
    fmt::print(
        context.out,
        "Processor:    <Error opening registry key HKLM\\HARDWARE\\...\\CentralProcessor\\0: "
        "{}>\n",
        key.error());
    return;
  }
  WriteValue(context, *key, "ProcessorNameString",
             "Processor:    ", "Processor:    <Registry read error ProcessorNameString>");
}

void WriteMemory(const SectionContext& context) {
  const auto memory = context.machine.Memory();
  if (!memory) {
    context.log.LogError("GlobalMemoryStatusEx failed: {}", memory.error());
    fmt::print(context.out, "Total RAM:    <Error getting memory status: {}>\n", memory.error());
    return;
  }
  const auto gibibytes = [](std::uint64_t bytes) {
    return static_cast<double>(bytes) / kBytesPerGibibyte;
  };
  fmt::print(context.out, "Total RAM:    {:.2f} GB\n", gibibytes(memory->total_physical));
  fmt::print(context.out, "Available RAM:{:.2f} GB\n", gibibytes(memory->available_physical));
  fmt::print(context.out, "Memory Load:  {}%\n", memory->load_percent);
}

}  // namespace

void WriteOperatingSystem(const SectionContext& context) {
  fmt::print(context.out, "\n--- Operating System ---\n");
  const auto key = context.registry.Open(R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)",
                                         platform::registry_access::kRead);
  if (!key) {
    context.log.LogError("Failed to open Windows NT\\CurrentVersion registry key: {}", key.error());
    fmt::print(context.out,
               "OS Info: <Error opening registry key HKLM\\SOFTWARE\\Microsoft\\Windows "
               "NT\\CurrentVersion: {}>\n",
               key.error());
    return;
  }
  WriteValue(context, *key, "ProductName",
             "OS Name:      ", "OS Name:      <Registry read error ProductName>");
  WriteDisplayVersion(context, *key);
  WriteValue(context, *key, "CurrentBuildNumber",
             "OS Build:     ", "OS Build:     <Registry read error CurrentBuildNumber>");
  WriteRevision(context, *key);
}

void WriteHardware(const SectionContext& context) {
  fmt::print(context.out, "\n--- Hardware ---\n");
  WriteProcessor(context);
  fmt::print(context.out, "Logical CPUs: {}\n", context.machine.LogicalProcessors());
  WriteMemory(context);
}

}  // namespace vosk::report
