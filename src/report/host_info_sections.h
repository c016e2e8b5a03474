// The sections of the host report, in the order of the file. What a section cannot find out leaves
// a line in angle brackets in its place and an error in the log; the rest of it follows.
#pragma once

#include <ctime>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "console/log.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "platform/system.h"
#include "report/process_module.h"

namespace vosk::report {

// What a section writes to and asks. The references outlive the report.
struct SectionContext {
  std::ostream& out;
  console::LogSink& log;
  platform::Files& files;
  platform::Machine& machine;
  platform::Registry& registry;
  platform::System& system;
};

void WriteTimes(const SectionContext& context, std::time_t now, const std::tm& local_time);
void WriteVersions(const SectionContext& context, const std::string& vosk_version,
                   const std::string& core_version);
void WriteHostname(const SectionContext& context);
void WriteOperatingSystem(const SectionContext& context);
void WriteHardware(const SectionContext& context);

// The runtime environment, from what the Core uses to what the machine offers.
void WriteLoadedModules(const SectionContext& context, const ProcessModules& modules);
void WriteRedistributables(const SectionContext& context);
void WriteRuntimeLibraries(const SectionContext& context);
void WriteDotNetVersions(const SectionContext& context);
void WriteWindowsVersion(const SectionContext& context);

// Gives the adapters for the last section; none where they could not be listed.
[[nodiscard]] std::vector<platform::NetworkAdapter> WriteNetworkInterfaces(
    const SectionContext& context);
void WriteNatStatus(const SectionContext& context,
                    const std::vector<platform::NetworkAdapter>& adapters);

// The version of a file; "Unknown" where it bears none, an error in angle brackets, which is also
// logged, where it cannot be read.
[[nodiscard]] std::string FileVersionText(const std::filesystem::path& path,
                                          platform::Machine& machine, console::LogSink& log);

}  // namespace vosk::report
