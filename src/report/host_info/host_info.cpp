#include "report/host_info/host_info.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <functional>
#include <mutex>

#include "platform/clock.h"
#include "platform/files.h"
#include "report/host_info/graphics.h"
#include "report/host_info/head.h"
#include "report/host_info/module_capture.h"
#include "report/host_info/network.h"
#include "report/host_info/runtime.h"
#include "report/host_info/system.h"
#include "report/host_info/windows_version.h"

namespace vosk::report {
namespace {

constexpr std::string_view kRule = "---------------------------------------------";
static_assert(kRule.size() == 45);

// Runs one section; an exception ends only that section.
void Guarded(const SectionContext& context, const std::function<void()>& section) {
  try {
    section();
  } catch (const std::exception& problem) {
    context.log.LogError("Exception while writing the host info file: {}", problem.what());
    fmt::print(context.out, "<Error: {}>\n", problem.what());
  }
}

}  // namespace

HostInfo::HostInfo(const platform::Host& host, console::LogSink& log, ReportedPrograms programs)
    : host_(host), log_(log), programs_(std::move(programs)) {}

bool HostInfo::GenerateHostInfoFile(const std::filesystem::path& path) {
  log_.LogInfo("Generating host info file: {}", path);
  const auto file = host_.files.OpenTextForWriting(path);
  if (!file) {
    log_.LogError("Failed to open host info file for writing: {}. Errno: {}", path, file.error());
    return false;
  }
  WriteReport(**file);
  (*file)->flush();
  if (!**file) log_.LogError("Failed to write all of host info file: {}", path);
  log_.LogInfo("Finished generating host info file: {}", path);
  return true;
}

void HostInfo::WriteReport(std::ostream& stream) {
  const SectionContext context{stream,        log_,           host_.files,
                               host_.machine, host_.registry, host_.system};
  const auto now = host_.clock.WallNow();
  fmt::print(stream, "--- VELDRAN Crash Report - Host Information ---\n");
  Guarded(context, [&] {
    WriteTimes(context, std::chrono::system_clock::to_time_t(now), host_.clock.ToLocal(now));
  });
  fmt::print(stream, "{}\n", kRule);
  Guarded(context, [&] { WriteVersions(context, programs_.vosk_version, programs_.core_version); });
  Guarded(context, [&] { WriteHostname(context); });
  Guarded(context, [&] { WriteOperatingSystem(context); });
  Guarded(context, [&] { WriteHardware(context); });

  fmt::print(stream, "\n--- Graphics Hardware ---\n");
  Guarded(context, [&] { EnumerateGPUs(stream); });

  fmt::print(stream, "\n--- C++ Runtime Environment ---\n");
  Guarded(context, [&] {
    const std::lock_guard lock(log_.ConsoleLock());
    WriteLoadedModules(context, programs_.core_modules);
  });
  Guarded(context, [&] { WriteRedistributables(context); });
  Guarded(context, [&] { WriteRuntimeLibraries(context); });
  Guarded(context, [&] { WriteDotNetVersions(context); });
  Guarded(context, [&] { WriteWindowsVersion(context); });

  std::vector<platform::NetworkAdapter> adapters;
  Guarded(context, [&] { adapters = WriteNetworkInterfaces(context); });
  Guarded(context, [&] { WriteNatStatus(context, adapters); });
  fmt::print(stream, "{}\n", kRule);
}

void HostInfo::EnumerateGPUs(std::ostream& stream) {
  WriteGraphics(stream, host_.machine, log_);
}

ProcessModules HostInfo::CaptureProcessModules(const platform::ProcessHandle& process) {
  return report::CaptureProcessModules(process, host_.processes, host_.machine, log_);
}

}  // namespace vosk::report
