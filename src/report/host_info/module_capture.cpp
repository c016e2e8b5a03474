#include "report/host_info/module_capture.h"

#include <algorithm>
#include <utility>

#include "report/host_info/file_version.h"
#include "report/host_info/runtime_rules.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

using platform::ModuleId;
using platform::Processes;
using platform::ProcessHandle;
using platform::Result;

struct ModuleListing {
  ProcessHandle reopened;  // empty if the given handle may read
  std::vector<ModuleId> modules;
};

// If the Core ran before VOSK, its handle allows waiting only.
Result<ModuleListing> ListModules(Processes& processes, const ProcessHandle& process) {
  constexpr std::uint32_t kReading =
      platform::access::kQueryInformation | platform::access::kReadMemory;
  ModuleListing listing;
  auto modules = processes.Modules(process);
  if (!modules && modules.error() == platform::kAccessDenied) {
    auto reopened = processes.Id(process).and_then(
        [&](platform::ProcessId pid) { return processes.Open(kReading, pid); });
    if (!reopened) return tl::unexpected(reopened.error());
    listing.reopened = *std::move(reopened);
    modules = processes.Modules(listing.reopened);
  }
  if (!modules) return tl::unexpected(modules.error());
  listing.modules = *std::move(modules);
  return listing;
}

}  // namespace

ProcessModules CaptureProcessModules(const ProcessHandle& process, Processes& processes,
                                     platform::Machine& machine, console::LogSink& log) {
  const auto listing = ListModules(processes, process);
  if (!listing) {
    log.LogError("CaptureProcessModules: EnumProcessModules failed: {}", listing.error());
    return {};
  }
  const ProcessHandle& reader = listing->reopened ? listing->reopened : process;
  ProcessModules captured;
  for (const ModuleId module : listing->modules) {
    // A module without a path was unloaded after it was listed.
    const auto path = processes.ModulePath(reader, module);
    if (!path) continue;
    std::string name = text::PathToUtf8(path->filename());
    if (!IsRuntimeModule(name)) continue;
    captured.push_back(
        {std::move(name), text::PathToUtf8(*path), FileVersionText(*path, machine, log)});
  }
  std::ranges::sort(captured, {},
                    [](const ProcessModule& module) { return text::ToLowerAscii(module.name); });
  return captured;
}

}  // namespace vosk::report
