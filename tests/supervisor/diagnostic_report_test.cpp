// The report of a running Core that the operator asks for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/supervisor/life.h"

namespace vosk::supervisor {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogHas;
using support::LogLacks;
using support::LogOf;
using support::LogText;
using support::SimulatedHost;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr char kLogs[] = "C:/Users/op/AppData/Roaming/VELDRAN/stats/TestNet";
constexpr char kEndRule[] = "[INFO] =====================================";

struct Row {
  std::string what;
  std::function<void(SimulatedHost&, SimServers&)> arrange;  // before the operator begins
  std::vector<std::string> received;
  std::vector<std::string> kept;  // names in the dump storage, without "VELDRAN_Core_250301_090020"
  LogText log;                    // with DUMP for the path of the dump without its extension
};

std::string WithDump(std::string line, const SimulatedHost& host) {
  constexpr std::string_view kMark = "DUMP";
  if (const auto at = line.find(kMark); at != std::string::npos) {
    line.replace(at, kMark.size(), (host.DumpDirectory() / "VELDRAN_Core_250301_090020").string());
  }
  return line;
}

const std::vector<Row>& Rows() {
  static const std::vector<Row> rows = {
      {.what = "sent",
       .arrange = [](SimulatedHost&, SimServers&) {},
       .received = {"_RIG-7_LIVE.zip"},
       .kept = {"_hostInfo.txt"},
       .log = {"[INFO] === Submitting Diagnostic Report ===",
               "[INFO] Creating memory dump of running VELDRAN Core (PID: 1004)...",
               "[INFO] Immediate dump created successfully: DUMP.dmp (Size: 0 MB)",
               "[INFO] Dump created: DUMP.dmp", "[INFO] Generated host info: DUMP_hostInfo.txt",
               "[INFO] Adding logs from: " + std::string(kLogs),
               "[INFO] ZIP archive created: DUMP_RIG-7_LIVE.zip",
               "[INFO] Uploading diagnostic report...",
               "[INFO] === Diagnostic report submitted successfully! ===", kEndRule}},
      {.what = "Red Alert",
       .arrange = [](SimulatedHost& host, SimServers&) { ChooseItem(host, 6); },
       .received = {"_RIG-7_LIVE_FD.zip"},
       .kept = {"_hostInfo.txt"},
       .log = {"[WARN] RED ALERT: Writing full-memory dump (MiniDumpWithFullMemory) - this may be "
               "large.",
               "[INFO] Immediate dump created successfully: DUMP.dmp (Size: 3 MB)", kEndRule}},
      {.what = "no dump",
       .arrange = [](SimulatedHost& host,
                     SimServers&) { host.FailNext("dump_writer.WriteDump", 112); },
       .received = {},
       .kept = {".dmp"},
       .log = {"[ERROR] MiniDumpWriteDump failed. Error: 112 (ERROR_DISK_FULL - Not enough disk "
               "space for dump file)",
               "[ERROR] Failed to create memory dump for diagnostic report."}},
      {.what = "no archive",
       .arrange = [](SimulatedHost& host,
                     SimServers&) { host.FailNext("files.OpenForReading", 32); },
       .received = {},
       .kept = {"_hostInfo.txt"},
       .log = {"[INFO] Adding logs from: " + std::string(kLogs),
               "[ERROR] Failed to create ZIP archive for diagnostic report.", kEndRule}},
      {.what = "no server",
       .arrange = [](SimulatedHost&, SimServers& network) { network.server_up = false; },
       .received = {},
       .kept = {"_RIG-7_LIVE.zip.failed_upload", "_hostInfo.txt"},
       .log = {"[INFO] Uploading diagnostic report...",
               "[ERROR] Failed to upload diagnostic report.", kEndRule}},
      {.what = "no server and no new name",
       .arrange =
           [](SimulatedHost& host, SimServers& network) {
             network.server_up = false;
             host.FailNext("files.Rename", 32);
           },
       .received = {},
       .kept = {"_RIG-7_LIVE.zip", "_hostInfo.txt"},
       .log = {"[ERROR] Failed to upload diagnostic report.", kEndRule}},
      {.what = "a dump that cannot be deleted",
       .arrange = [](SimulatedHost& host, SimServers&) { host.FailNext("files.Remove", 32); },
       .received = {"_RIG-7_LIVE.zip"},
       .kept = {".dmp", "_hostInfo.txt"},
       .log = {"[WARN] Could not delete the dump of the diagnostic report: DUMP.dmp. Error: The "
               "process cannot access the file because it is being used by another process.",
               "[INFO] === Diagnostic report submitted successfully! ===", kEndRule}},
      {.what = "no logs",
       .arrange = [](SimulatedHost&, SimServers&) { std::filesystem::remove_all(kLogs); },
       .received = {"_RIG-7_LIVE.zip"},
       .kept = {"_hostInfo.txt"},
       .log = {"[INFO] Generated host info: DUMP_hostInfo.txt",
               "[INFO] ZIP archive created: DUMP_RIG-7_LIVE.zip", kEndRule}},
  };
  return rows;
}

TEST(DiagnosticReport, IsSentOrKeptAndTheCoreGoesOn) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    host.Furnish();
    host.processes.Add(kCoreName);
    SimServers network(host);
    host.At(17s, [&](SimulatedHost& at) { row.arrange(at, network); });
    host.At(20s, [](SimulatedHost& at) { ChooseItem(at, 4); });
    LiveOnce(host, network, {.quit_at = 30s});

    const auto full = [](const std::vector<std::string>& endings) {
      std::vector<std::string> names;
      for (const auto& ending : endings) names.push_back("VELDRAN_Core_250301_090020" + ending);
      return names;
    };
    EXPECT_THAT(network.ReceivedNames(), ElementsAreArray(full(row.received)));
    EXPECT_THAT(SimulatedHost::NamesIn(host.DumpDirectory()), ElementsAreArray(full(row.kept)));
    LogText lines;
    for (const std::string& line : row.log) lines.push_back(WithDump(line, host));
    const LogText log = LogOf(host);
    EXPECT_THAT(log, LogHas(lines));
    EXPECT_EQ(lines.back() == kEndRule, testing::Value(log, Contains(kEndRule)));
    EXPECT_EQ(EverStarted(host, kCoreName), 1u);
    EXPECT_THAT(log, LogLacks("has terminated"));
    if (network.received.empty()) continue;
    std::vector<std::string> entries = full({".dmp", "_hostInfo.txt"});
    if (row.what != "no logs") entries.emplace_back("TestNet/core.log");
    ASSERT_EQ(network.received.size(), 1u);
    EXPECT_THAT(network.received[0].entries, ElementsAreArray(entries));
  }
}

}  // namespace
}  // namespace vosk::supervisor
