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
using support::SimulatedHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kVersionFile[] = "C:/Users/op/AppData/Roaming/VELDRAN/stats/TestNet/CoreVersion.txt";

TEST(StartUp, TheVersionQueryPrintsTwoLinesAndDoesNothingElse) {
  struct Row {
    std::string argument;
    std::string version_file;
    std::string core_version;
  };
  const Row rows[] = {
      {"-version", "1.2.3\r\n", "1.2.3"},
      {"--version", "  \t1.3.0  \nsecond line\n", "1.3.0"},
      {"-v", "0.0.0", "Not installed or version file not found"},
      {"-v", "   \n", "Not installed or version file not found"},
      {"-v", "", "Not installed or version file not found"},
  };
  for (const Row& row : rows) {
    CheckedHost host;
    host.Furnish();
    host.processes.Add(u"VOSK.exe");
    if (!row.version_file.empty()) host.PutFile(kVersionFile, row.version_file);
    SimServers network(host);
    EXPECT_EQ(LiveOnce(host, network, {.arguments = {row.argument, "more"}}), 0);
    EXPECT_EQ(host.console.Text(),
              "VOSK (Vigilant Oversight & Supervision Kit) v3.3\n"
              "VELDRAN Core: " +
                  row.core_version + "\n");
    EXPECT_FALSE(std::filesystem::exists(host.LogFile()));
    EXPECT_EQ(host.processes.Running(u"VOSK.exe").size(), 2u) << "the other one was left alone";
  }
}

TEST(StartUp, ReachesTheLoopInItsOrder) {
  CheckedHost host;
  host.Furnish();
  host.console.understands_escapes = false;
  host.processes.Add(u"ProcDump.EXE");
  host.processes.Add(u"myprocdump.exe");
  SimServers network(host);
  EXPECT_EQ(LiveOnce(host, network, {.arguments = {"--help", "me"}, .quit_at = 6s}), 0);
  EXPECT_EQ(host.console.code_page, 65001u);
  EXPECT_THAT(host.processes.Running(u"ProcDump.EXE"), IsEmpty());
  EXPECT_EQ(host.processes.Running(u"myprocdump.exe").size(), 1u);
  const std::string target = "C:/Program Files/VELDRAN Inc/VELDRAN Core/VELDRAN Core.exe";
  EXPECT_THAT(
      LogOf(host),
      LogHas({"--- Log Session Start ---",
              "[INFO] ----------------------------------------------------",
              "[INFO] VELDRAN Core Autonomous VOSK v3.3 Started",
              "[INFO] ----------------------------------------------------",
              "[INFO] EnableDebugPriv: SeDebugPrivilege adjustment succeeded.",
              "[WARN] Reporter launched with command line arguments. Arguments are ignored in "
              "monitoring mode.",
              "[INFO] Arguments received: \"--help\" \"me\" ",
              "[INFO] VOSK directory: C:/VOSK",
              "[INFO] Created dump storage directory: " + host.DumpDirectory().string(),
              "[INFO] Checking for target at default path: " + target,
              "[INFO] Using target executable from default location.",
              "[INFO] Target log root directory found: "
              "C:/Users/op/AppData/Roaming/VELDRAN/stats/TestNet",
              "[INFO] ------------------ Monitoring Active -------------------",
              "[INFO] Target Process: " + target,
              "[INFO] Target Directory: C:/Program Files/VELDRAN Inc/VELDRAN Core",
              "[INFO] Log Source Dir: C:/Users/op/AppData/Roaming/VELDRAN/stats/TestNet",
              "[INFO] Dump Storage Dir: " + host.DumpDirectory().string(),
              "[INFO] Monitoring Interval: 500 ms",
              "[INFO] Press Ctrl+C in console (if visible) to stop monitoring.",
              "[INFO] -------------------------------------------------------",
              "[INFO] Crash Count So Far: 0"}));
  EXPECT_THAT(network.open_initialisations, 0);
}

TEST(StartUp, TheCoreMayStandBesideVosk) {
  CheckedHost host;
  host.InstallCore("C:/VOSK/VELDRAN Core.exe");
  host.InstallMonitor();
  host.FailNext("files.TypeOf", 5);  // the dump storage's, which then is simply made
  SimServers network(host);
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 10s}), 0);
  EXPECT_THAT(
      LogOf(host),
      LogHas({"[WARN] Target executable not found at default path: C:/Program Files/VELDRAN "
              "Inc/VELDRAN Core/VELDRAN Core.exe",
              "[INFO] Checking fallback path: C:/VOSK/VELDRAN Core.exe",
              "[INFO] Using target executable from fallback location.",
              "[WARN] Target log root directory does not exist or is not accessible: "
              "C:/Users/op/AppData/Roaming/VELDRAN/stats/TestNet Error: The system cannot find the "
              "path specified.. Logs may not be included in crash reports."}));
}

TEST(StartUp, ANewerSupervisorEndsTheOlderOne) {
  CheckedHost host;
  host.Furnish();
  const auto older = host.processes.Add(u"vosk.EXE").pid;
  SimServers network(host);
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1s}), 0);
  EXPECT_FALSE(host.processes.At(older).running);
}

TEST(StartUp, EndsWithStatusOneWhereAnOlderSupervisorCannotBeEnded) {
  CheckedHost host;
  host.Furnish();
  auto& older = host.processes.Add(u"VOSK.exe");
  older.on_terminate = support::OnTerminate::access_denied;
  older.survives_taskkill = true;
  SimServers network(host);
  EXPECT_EQ(LiveOnce(host, network), 1);
  EXPECT_THAT(host.console.Text(), HasSubstr("[WARN] Could not terminate all other VOSK instances. "
                                             "There might be conflicts."));
  EXPECT_FALSE(std::filesystem::exists(host.LogFile())) << "the log is opened later";
}

TEST(StartUp, FatalFailuresAreShownInABox) {
  struct Row {
    std::string what;
    std::function<void(SimulatedHost&, SimServers&)> arrange;
    std::string title;
    std::string text;
  };
  const std::string see_log = "\n\nPlease check the VOSK.log file for details.";
  const Row rows[] = {
      {"libcurl", [](SimulatedHost&, SimServers& net) { net.initialize_error = "Failed init"; },
       "Fatal Error",
       "FATAL: curl_global_init() failed: Failed init\nThe application cannot continue."},
      {"COM",
       [](SimulatedHost& host, SimServers&) { host.FailNext("system.InitializeCom", 0x8007000E); },
       "Fatal Error", "Failed to initialize COM library. Cannot determine required user folders."},
      {"own path",
       [](SimulatedHost& host, SimServers&) { host.FailNext("system.ModulePath", 122); },
       "VOSK Error", "Initialization failed: Failed to get module file name. Error: 122" + see_log},
      {"temp path",
       [](SimulatedHost& host, SimServers&) { host.FailNext("system.TempPath", 87, 2); },
       "VOSK Error", "Initialization failed: Failed to get temporary path. Error: 87" + see_log},
      {"dump storage",
       [](SimulatedHost& host, SimServers&) { host.FailNext("files.CreateDirectories", 5); },
       "VOSK Error",
       "Initialization failed: Failed to create dump storage directory: "
       "C:/Users/op/AppData/Local/Temp/VELDRAN_VOSK_Dumps, Error: "},
      {"a file in the dump storage's place",
       [](SimulatedHost& host, SimServers&) { host.PutFile(host.DumpDirectory(), ""); },
       "VOSK Error",
       "Initialization failed: Failed to create dump storage directory: "
       "C:/Users/op/AppData/Local/Temp/VELDRAN_VOSK_Dumps, Error: Cannot create a file when that "
       "file already exists." +
           see_log},
      {"no Core",
       [](SimulatedHost&, SimServers&) {
         std::filesystem::remove_all("C:/Program Files/VELDRAN Inc");
       },
       "VOSK Error",
       "Initialization failed: Target executable 'VELDRAN Core.exe' not found at default or "
       "fallback location, and automatic installation failed or did not place it correctly. "
       "Cannot monitor." +
           see_log},
      {"no ProcDump",
       [](SimulatedHost&, SimServers&) { std::filesystem::remove("C:/VOSK/procdump64.exe"); },
       "VOSK Error",
       "Initialization failed: ProcDump could not be found or acquired. Cannot proceed with "
       "monitoring." +
           see_log},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    host.Furnish();
    SimServers network(host);
    row.arrange(host, network);
    EXPECT_EQ(LiveOnce(host, network), 1);
    ASSERT_EQ(host.system.boxes.size(), 1u);
    EXPECT_EQ(host.system.boxes[0].title, row.title);
    EXPECT_THAT(host.system.boxes[0].text, HasSubstr(row.text));
    EXPECT_EQ(network.open_initialisations, 0);
    EXPECT_THAT(host.processes.Running(kCoreName), IsEmpty());
  }
}

TEST(StartUp, ComInAnotherModeIsGoodEnough) {
  CheckedHost host;
  host.Furnish();
  host.FailNext("system.InitializeCom", platform::kChangedMode.value);
  SimServers network(host);
  EXPECT_EQ(LiveOnce(host, network, {.quit_at = 1s}), 0);
  EXPECT_THAT(host.system.boxes, IsEmpty());
}

}  // namespace
}  // namespace vosk::supervisor
