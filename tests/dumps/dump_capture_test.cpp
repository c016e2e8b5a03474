#include "dumps/dump_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"

namespace vosk::dumps {
namespace {

using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogRecorder;
using support::SimulatedHost;
using testing::ElementsAre;
using testing::SizeIs;

struct Bench {
  CheckedHost host;
  LogRecorder log{host};
  std::atomic<bool> red_alert{false};
  DumpCapture capture{host.Bundle(), log.Sink(), red_alert};
};

TEST(LaunchProcDumpMonitor, PrefersThe64BitProgramAndTellsItsCommandLine) {
  for (const bool red_alert : {false, true}) {
    for (const std::string program : {"procdump64.exe", "procdump.exe"}) {
      Bench bench;
      bench.red_alert = red_alert;
      bench.host.InstallProgram("C:/VOSK/procdump.exe");
      if (program == "procdump64.exe") bench.host.InstallProgram("C:/VOSK/procdump64.exe");
      const auto monitor = bench.capture.LaunchProcDumpMonitor(4242, "C:/Dumps here");
      ASSERT_TRUE(monitor);
      const auto& process = bench.host.processes.At(*bench.host.processes.Id(monitor));
      EXPECT_EQ(process.command_line,
                "\"C:/VOSK/" + program + "\"" +
                    (red_alert ? " -accepteula -ma -e 4242" : " -accepteula -mc 1064 -e 4242") +
                    " \"C:/Dumps here\"");
      EXPECT_EQ(process.console, platform::ConsoleOfChild::no_window);
      const std::string kind = program == "procdump64.exe" ? "primary" : "fallback";
      EXPECT_THAT(bench.log.Lines(),
                  LogHas({"[INFO] Using " + kind + " ProcDump executable: C:/VOSK/" + program,
                          "[INFO] Created dump directory: C:/Dumps here",
                          "[INFO] Launching ProcDump monitor for PID 4242: " + process.command_line,
                          "[INFO] ProcDump launched successfully. Monitor Process ID: " +
                              std::to_string(process.pid)}));
      EXPECT_EQ(testing::Value(bench.log.Lines(),
                               LogHas({"[WARN] RED ALERT: Attaching ProcDump in full-memory (-ma) "
                                       "mode for PID 4242"})),
                red_alert);
    }
  }
}

TEST(LaunchProcDumpMonitor, GivesNoHandleAndOneReasonOnFailure) {
  struct Row {
    std::string operation;
    std::uint32_t code;
    std::string last_line;
  };
  const Row rows[] = {
      {"system.ModulePath", 122, "[ERROR] GetModuleFileNameW failed: 122"},
      {"files.CreateDirectories", 5,
       "[ERROR] Failed to create dump directory 'C:/Dumps': Access is denied."},
      {"processes.Start", 740,
       "[ERROR] Failed to launch ProcDump for PID 1. CreateProcessW error code: 740"},
  };
  for (const Row& row : rows) {
    Bench bench;
    bench.host.InstallMonitor();
    bench.host.FailNext(row.operation, row.code);
    EXPECT_FALSE(bench.capture.LaunchProcDumpMonitor(1, "C:/Dumps"));
    EXPECT_EQ(bench.log.Lines().back(), row.last_line);
  }
}

TEST(CreateImmediateDump, IsNamedByTheSecondAndOverwrites) {
  Bench bench;
  const auto pid = bench.host.processes.Add(u"VELDRAN Core.exe").pid;
  EXPECT_TRUE(bench.capture.CreateImmediateDump(pid, "C:/Dumps"));
  EXPECT_TRUE(bench.capture.CreateImmediateDump(pid, "C:/Dumps"));
  EXPECT_THAT(SimulatedHost::NamesIn("C:/Dumps"), ElementsAre("VELDRAN_Core_250301_090000.dmp"));
  EXPECT_THAT(
      bench.log.Lines(),
      LogHas({"[INFO] Creating immediate process dump for PID 1004 using MiniDumpWriteDump...",
              "[INFO] Dump file path: C:/Dumps/VELDRAN_Core_250301_090000.dmp",
              "[INFO] Writing memory dump (this may take a moment)...",
              "[INFO] Immediate dump created successfully: "
              "C:/Dumps/VELDRAN_Core_250301_090000.dmp (Size: 0 MB)"}));
  bench.red_alert = true;
  EXPECT_TRUE(bench.capture.CreateImmediateDump(pid, "C:/Dumps"));
  EXPECT_THAT(bench.log.Lines(), LogHas({"[WARN] RED ALERT: Writing full-memory dump "
                                         "(MiniDumpWithFullMemory) - this may be large."}));
}

TEST(CreateImmediateDump, ExplainsWhatWentWrong) {
  struct Row {
    std::string operation;
    std::uint32_t code;
    support::LogText lines;
  };
  const std::string failed = "[ERROR] MiniDumpWriteDump failed. Error: ";
  const Row rows[] = {
      {"processes.Open",
       5,
       {"[ERROR] Failed to open process 1004 for dump. Error: 5",
        "[ERROR] Access denied. Try running VOSK as Administrator."}},
      {"processes.Open",
       87,
       {"[ERROR] Failed to open process 1004 for dump. Error: 87",
        "[ERROR] Invalid PID - process may have exited."}},
      {"dump_writer.CreateDumpFile", 32, {"[ERROR] Failed to create dump file. Error: 32"}},
      {"processes.Id", 6, {"[ERROR] Process handle PID mismatch! Handle PID: 0, Target PID: 1004"}},
      {"dump_writer.WriteDump",
       112,
       {failed + "112 (ERROR_DISK_FULL - Not enough disk space for dump file)"}},
      {"dump_writer.WriteDump",
       0x80070070,
       {failed + "2147942512 (ERROR_DISK_FULL - Not enough disk space for dump file)"}},
      {"dump_writer.WriteDump",
       0x80070005,
       {failed + "2147942405 (ERROR_ACCESS_DENIED - Run VOSK as Administrator)"}},
      {"dump_writer.WriteDump",
       31,
       {failed + "31 (ERROR_GEN_FAILURE - General failure writing dump)"}},
      {"dump_writer.WriteDump",
       0x80070057,
       {failed + "2147942487 (ERROR_INVALID_PARAMETER - Check process access rights or dump type "
                 "flags)"}},
      {"dump_writer.WriteDump", 0x800700FF, {failed + "2147942655"}},
      {"files.SizeOf", 5, {"[ERROR] Dump file is empty or could not read size."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.operation + ' ' + std::to_string(row.code));
    Bench bench;
    const auto pid = bench.host.processes.Add(u"VELDRAN Core.exe").pid;
    bench.host.FailNext(row.operation, row.code);
    EXPECT_FALSE(bench.capture.CreateImmediateDump(pid, "C:/Dumps"));
    EXPECT_THAT(bench.log.Lines(), LogHas(row.lines));
    EXPECT_EQ(bench.log.Lines().back(), row.lines.back());
  }
}

}  // namespace
}  // namespace vosk::dumps
