#include <fmt/format.h>
#include <gtest/gtest.h>

#include "dumps/immediate_dump.h"
#include "dumps/procdump_monitor.h"
#include "simulation/zip_bytes.h"
#include "tests/support/checked_host.h"
#include "tests/support/fake_downloader.h"
#include "tests/support/transcript.h"
#include "tests/support/variants.h"

namespace vosk::dumps {
namespace {

using support::SimulatedHost;

void Arrange(SimulatedHost& host) {
  host.InstallProgram("C:/VOSK/procdump.exe");
  host.InstallProgram("C:/VOSK/procdump64.exe");
  host.processes.Add(u"VELDRAN Core.exe");
}

// A monitor, and beside it a dump at once. `served` is the ProcDump that can be had.
std::string Act(SimulatedHost& host, console::LogSink& log, bool red_alert,
                const std::string& served = "") {
  const std::atomic<bool> mode{red_alert};
  support::FakeDownloader site;
  site.fetch = [&](const std::string&, const std::filesystem::path& destination) {
    host.PutFile(destination, support::ZipBytes({{"procdump64.exe", served}}));
    return true;
  };
  ProcDumpAcquisition acquisition(host.files, host.system, log, site);
  ProcDumpMonitor watch(host.Bundle(), log, mode, acquisition);
  auto monitor = watch.LaunchProcDumpMonitor(1004, "C:/Dumps here");
  // As the supervisor does a little later.
  if (!monitor && !served.empty()) monitor = watch.LaunchProcDumpMonitor(1004, "C:/Dumps here");
  const auto dump = ImmediateDump(host.Bundle(), log, mode).CreateImmediateDump(1004, "C:/Dumps");
  host.choke.faults.Clear();
  const bool hidden = monitor && host.processes.At(*host.processes.Id(monitor)).console ==
                                     platform::ConsoleOfChild::no_window;
  std::string end = fmt::format("monitor {}, dump {}, in the directory: [{}]\n", hidden,
                                dump ? dump->string() : "none",
                                fmt::join(SimulatedHost::NamesIn("C:/Dumps"), " "));
  for (const std::string& call : host.choke.Trace()) {
    if (call.starts_with("dump_writer.WriteDump")) end += call + '\n';
  }
  return end;
}

TEST(DumpCapture, TellsOfEveryFault) {
  support::ExpectFaultTranscript(
      "dumps/dump_capture_faults.txt",
      {.arrange = Arrange,
       .act = [](SimulatedHost& host, console::LogSink& log) { return Act(host, log, false); }});
}

TEST(DumpCapture, TellsOfEveryCase) {
  struct Row {
    std::string operation;
    std::uint32_t code = 0;
  };
  const Row rows[] = {
      {"clean"},
      {"red alert"},
      {"fallback"},
      {"no ProcDump"},
      {"no Core"},
      {"damaged"},
      {"damaged for good"},
      {"damaged and in use"},
      {"an earlier dump"},
      {"processes.Start", 740},
      {"processes.Open", 6},
      {"dump_writer.WriteDump", 112},
      {"dump_writer.WriteDump", 0x8007'0005},
      {"dump_writer.WriteDump", 31},
      {"dump_writer.WriteDump", 87},
      {"dump_writer.WriteDump", 0x8007'0057},
      {"dump_writer.WriteDump", 0x8007'00FF},
      {"dump_writer.WriteDump", 0x8008'0005},
  };
  support::Variants variants;
  for (const auto& [what, code] : rows) {
    support::CheckedHost host;
    Arrange(host);
    support::LogRecorder log(host);
    if (code != 0) host.FailNext(what, code);
    if (what.ends_with("ProcDump") || what == "fallback") {
      std::filesystem::remove("C:/VOSK/procdump64.exe");
    }
    if (what == "no ProcDump") std::filesystem::remove("C:/VOSK/procdump.exe");
    if (what.starts_with("damaged")) {
      host.PutFile("C:/VOSK/procdump64.exe", "M");
      std::filesystem::remove("C:/VOSK/procdump.exe");
    }
    if (what.ends_with("in use")) host.files.Hold("C:/VOSK/procdump64.exe", {.read = true});
    if (what == "no Core") host.processes.End(host.processes.At(1004), 0);
    if (what == "an earlier dump") {
      host.PutFile("C:/Dumps/VELDRAN_Core_250301_090000.dmp", std::string(3 << 20, 'x'));
    }
    const std::string served = what == "damaged" ? "MZ" : what.starts_with("damaged") ? "M" : "";
    const std::string end = Act(host, log.Sink(), what == "red alert", served);
    variants.Add(fmt::format("{} {}", what, code), log.Lines(), end);
  }
  variants.Expect("dumps/dump_capture_cases.txt");
}

}  // namespace
}  // namespace vosk::dumps
