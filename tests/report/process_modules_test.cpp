#include "report/host_info/host_info.h"
#include "tests/support/transcript.h"

namespace vosk::report {
namespace {

namespace access = platform::access;
using simulation::SimulatedHost;

// Starts a Core with modules, some of them of no interest.
void StartCore(SimulatedHost& host) {
  host.PutFile("C:/Core/MSVCP140.dll", "MZ");  // without a version
  host.processes.Add(u"VELDRAN Core.exe").modules = {{"C:/Core/VELDRAN Core.exe"},
                                                     {"C:/Windows/System32/ntdll.dll"},
                                                     {"C:/Windows/System32/KERNEL32.DLL"},
                                                     {"C:/Core/plug-in/VCRUNTIME140.dll", true},
                                                     {"C:/Core/MSVCP140.dll"},
                                                     {"C:/Core/Müller/msvcp140_1.dll"}};
  host.machine.file_versions = {{"C:/Windows/System32/ntdll.dll", {10, 0, 22621, 2506}},
                                {"C:/Windows/System32/KERNEL32.DLL", {10, 0, 22621, 2715}}};
}

std::string Capture(SimulatedHost& host, console::LogSink& log, std::uint32_t rights) {
  const std::string version;
  const ProcessModules none;
  HostInfo host_info(host.Bundle(), log, {"3.3", version, none});
  const auto handle =
      host.processes.Open(rights, host.processes.Running(u"VELDRAN Core.exe").front()->pid);
  if (!handle) return "not opened\n";
  std::string text = "modules:\n";
  for (const auto& [name, path, file_version] : host_info.CaptureProcessModules(*handle)) {
    text += name + " | " + path + " | " + file_version + '\n';
  }
  return text;
}

TEST(ProcessModulesTest, OfACoreThatVoskMayReadAndOfOneItMayOnlyWaitFor) {
  support::ExpectFaultTranscript(
      "report/process_modules.txt",
      {.arrange = StartCore, .act = [](SimulatedHost& host, console::LogSink& log) {
         return Capture(host, log, access::kQueryInformation | access::kReadMemory) +
                Capture(host, log, access::kSynchronize | access::kQueryLimitedInformation);
       }});
}

}  // namespace
}  // namespace vosk::report
