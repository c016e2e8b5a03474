#include "install/self_update.h"

#include <gtest/gtest.h>

#include "tests/install/install_scene.h"
#include "tests/support/sweep.h"

namespace vosk::install {
namespace {

using namespace std::chrono_literals;
using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogLacks;
using support::LogRecorder;
using support::LogText;
using support::OnTerminate;
using support::SimPackage;
using support::SimulatedHost;

constexpr char kSelf[] = "C:/Program Files/VELDRAN Inc/VELDRAN Core/VOSK.exe";
constexpr char kVersionFile[] = "C:/stats/CoreVersion.txt";

// VOSK 1.2.2's package is installed and its VOSK runs from there, with a Core and a monitor.
struct Scene {
  explicit Scene(SimulatedHost& on) : host(on) {
    host.clock.SetBudget(30min);
    host.system.module_path = kSelf;
    InstallOld(host, "1.2.2", kOldProduct);
    host.PutFile(kVersionFile, "1.2.2");
    core_version.Set("1.2.2");
    Publish({.version = "1.2.3"});
    hTargetProcess = Held(kCoreName, core_pid);
    platform::ProcessId monitor_pid = 0;
    hProcDump = Held(u"procdump64.exe", monitor_pid);
  }

  platform::ProcessHandle Held(std::u16string_view name, platform::ProcessId& pid) {
    pid = host.processes.Add(std::u16string(name)).pid;
    auto handle = host.processes.Open(0x001F'FFFF, pid);
    return handle ? std::move(*handle) : platform::ProcessHandle();
  }

  void Publish(SimPackage package) { download.zip = PackageZip(host, package); }
  support::SimProcess& Core() { return host.processes.At(core_pid); }

  bool Run() {
    return update.Run({.expected_version = "1.2.3",
                       .dump_storage_directory = std::string(kTemp) + "/VELDRAN_VOSK_Dumps",
                       .core_directory = kCoreDirectory,
                       .log_root_directory = log_root_directory,
                       .core_pid = core_pid,
                       .hTargetProcess = hTargetProcess,
                       .hProcDump = hProcDump});
  }

  SimulatedHost& host;
  LogRecorder log{host};
  process::ProcessControl processes{host.processes, log.Sink()};
  PreparedDownload download{host};
  CoreVersion core_version{host.files, log.Sink()};
  std::atomic<bool> terminate{false};
  SelfUpdate update{host.Bundle(), log.Sink(), processes, download, core_version, terminate};
  std::filesystem::path log_root_directory = "C:/stats";
  platform::ProcessId core_pid = 0;
  platform::ProcessHandle hTargetProcess;
  platform::ProcessHandle hProcDump;
};

TEST(SelfUpdate, TakesSevenStepsToHandOver) {
  CheckedHost host;
  Scene scene(host);
  EXPECT_TRUE(scene.Run());
  EXPECT_TRUE(scene.terminate);
  EXPECT_EQ(scene.core_version.Current(), "1.2.3");
  EXPECT_FALSE(scene.hTargetProcess);
  EXPECT_FALSE(scene.hProcDump);
  EXPECT_EQ(SimulatedHost::ReadFile(kSelf), "MZ of 1.2.3");
  EXPECT_EQ(SimulatedHost::ReadFile(std::string(kSelf) + ".old"), "MZ of 1.2.2");
  EXPECT_FALSE(std::filesystem::exists(kVersionFile));
  EXPECT_FALSE(std::filesystem::exists(kWorkDirectory));
  const auto running = host.processes.Running(kSelfName);
  ASSERT_EQ(running.size(), 2u);
  EXPECT_EQ(running[1]->command_line,
            '"' + text::PathToUtf8(std::filesystem::path(kCoreDirectory) / "VOSK.exe") + '"');
  EXPECT_EQ(*running[1]->working_directory, kCoreDirectory);

  LogText steps;
  for (const std::string& line : scene.log.Lines()) {
    if (line.find("Update") != std::string::npos) steps.push_back(line);
  }
  EXPECT_THAT(
      steps,
      LogIs({"[WARN] --- Starting Update Sequence to Version 1.2.3 ---",
             "[INFO] Update Step 1/7: Preparing temporary download directory...",
             "[INFO] Update Step 1/7: Temp directory ready.",
             "[INFO] Update Step 2/7: Downloading and extracting new version...",
             "[INFO] Update Step 2/7: Download and extraction complete.",
             "[INFO] Update Step 3/7: Validating MSI version matches expected version...",
             "[INFO] Update Step 3/7: MSI version verified: 1.2.3 matches expected 1.2.3",
             "[INFO] Update Step 4/7: Terminating current processes...",
             "[INFO] Update Step 4/7: Core process termination confirmed.",
             "[INFO] Update Step 4/7: Process termination phase complete.",
             "[INFO] Update Step 5/7: Clearing old CoreVersion.txt file...",
             "[INFO] Update: Successfully removed C:/stats/CoreVersion.txt",
             "[INFO] Update Step 6/7: Renaming current VOSK executable...",
             "[INFO] Update Step 6/7: Rename successful.",
             "[INFO] Update Step 6b/7: Uninstalling previous VELDRAN Core versions (best "
             "effort)...",
             std::string("[INFO] Update: Uninstalling ProductCode: ") + kOldProduct,
             "[INFO] Update Step 6b/7: Uninstall attempt finished successfully for found versions.",
             "[INFO] Update Step 7/7: Installing new version...",
             "[INFO] Update Step 7/7: Installation command reported success (Code: 0)",
             "[INFO] Update: Core executable verified post-install.",
             "[INFO] Update Step 7b/7: Checking for/launching new VOSK instance...",
             "[INFO] Update: Waiting 5 seconds for MSI to potentially auto-launch new VOSK...",
             "[WARN] Update: New VOSK instance not detected. Attempting manual launch...",
             "[WARN] Update: Successfully launched NEW VOSK manually (PID: 1020). Old VOSK will "
             "now exit.",
             "[INFO] Update: Successfully updated internal version tracker to 1.2.3",
             "[INFO] Update: Cleaning up temporary install directory: C:/temp/VELDRAN_Install",
             "[INFO] --- Update Sequence Finished (Overall Success: Yes) ---"}));
}

TEST(SelfUpdate, GoesTheLongerWaysToSuccessAsWell) {
  struct Row {
    std::string what;
    std::function<void(Scene&)> arrange;
    LogText lines;
  };
  const Row rows[] = {
      {"a newer package",
       [](Scene& scene) { scene.Publish({.version = "1.3.0"}); },
       {"[INFO] Update Step 3/7: MSI version 1.3.0 is newer than expected 1.2.3 \x97 "
        "proceeding."}},
      {"the installer starts the new VOSK",
       [](Scene& scene) {
         scene.host.installer.on_installed = [&scene](const auto&) {
           scene.host.processes.Add(std::u16string(kSelfName));
         };
       },
       {"[WARN] Update: Detected another VOSK.exe process. Assuming new version.",
        "[WARN] Update: Exiting old VOSK to allow new instance to run."}},
      {"reboot wanted",
       [](Scene& scene) { scene.Publish({.version = "1.2.3", .install_exit_code = 3010}); },
       {"[INFO] Update Step 7/7: Installation command reported success (Code: 3010)",
        "[WARN] Update: Reboot may be required for Core components."}},
      {"nothing runs",
       [](Scene& scene) {
         scene.hTargetProcess.Reset();
         scene.hProcDump.Reset();
       },
       {"[INFO] No active ProcDump process to terminate.",
        "[INFO] No active Core process to terminate."}},
      {"no logs known",
       [](Scene& scene) { scene.log_root_directory.clear(); },
       {"[WARN] Update: Cannot clear CoreVersion.txt because log root directory path is not "
        "known."}},
      {"the Core has just ended",
       [](Scene& scene) { scene.host.processes.End(scene.Core(), 0); },
       {"[INFO] TerminateProcess failed for Core (Error: 5) - likely already stopped.",
        "[INFO] Update Step 4/7: Core process termination confirmed."}},
      {"an older .old",
       [](Scene& scene) { scene.host.PutFile(std::string(kSelf) + ".old", "x"); },
       {"[INFO] RenameSelf: Successfully removed existing '.old' file."}},
      {"the old version cannot be removed",
       [](Scene& scene) { scene.host.installer.uninstall_exit_code = 1603; },
       {"[WARN] Update Step 6b/7: Finished uninstall attempt with errors."}},
      {"products cannot be listed",
       [](Scene& scene) { scene.host.FailNext("installer.RelatedProduct", 1610); },
       {"[WARN] Update: MsiEnumRelatedProductsW failed during enumeration: 1610",
        "[WARN] Update Step 6b/7: Finished uninstall attempt with errors."}},
      {"no version installed",
       [](Scene& scene) { scene.host.installer.products.clear(); },
       {"[INFO] Update Step 6b/7: No previous versions found to uninstall."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    Scene scene(host);
    row.arrange(scene);
    EXPECT_TRUE(scene.Run());
    EXPECT_TRUE(scene.terminate);
    EXPECT_EQ(host.processes.Running(kSelfName).size(), 2u);
    EXPECT_THAT(scene.log.Lines(), LogHas(row.lines));
  }
}

// Up to the renaming nothing is installed or removed; the old VOSK stays what it was.
TEST(SelfUpdate, LeavesTheInstallationAloneWhereItAbortsEarly) {
  struct Row {
    std::string what;
    bool core_runs;
    std::function<void(Scene&)> arrange;
    LogText lines;
  };
  const auto too_old = [](const std::string& version) -> LogText {
    return {"[ERROR] Update: VERSION TOO OLD! Expected at least: 1.2.3, MSI contains: " + version +
                ". The download package is older than the version reported by the network.",
            "[WARN] Update: This likely means the download server has not yet been updated with "
            "the new release.",
            "[WARN] Update: Deleted ZIP file: C:/temp/VELDRAN_Install/VELDRANCore_latest.zip"};
  };
  const Row rows[] = {
      {"no room to work",
       true,
       [](Scene& scene) { scene.host.FailNext("files.CreateDirectories", 5); },
       {"[ERROR] Update Error: Failed to create temp install directory "
        "'C:/temp/VELDRAN_Install'. Error: Access is denied.. Aborting."}},
      {"no package",
       true,
       [](Scene& scene) { scene.download.zip.clear(); },
       {"[ERROR] Update: Failed download. Aborting before touching local installation."}},
      {"broken package",
       true,
       [](Scene& scene) { scene.download.zip = "PK"; },
       {"[ERROR] Update: Failed extraction. Aborting."}},
      {"no version in it",
       true,
       [](Scene& scene) { scene.Publish({}); },
       {"[ERROR] Update: Could not read ProductVersion from MSI. Aborting.",
        "[WARN] Update: Deleted downloaded ZIP to prevent retry loop."}},
      {"too old", true, [](Scene& scene) { scene.Publish({.version = "1.2.2"}); },
       too_old("1.2.2")},
      {"two numbers only", true, [](Scene& scene) { scene.Publish({.version = "9.9"}); },
       too_old("9.9")},
      {"the Core stays",
       true,
       [](Scene& scene) { scene.Core().on_terminate = OnTerminate::ignores; },
       {"[ERROR] Update Error: Target Core process (PID: 1004) did not terminate within timeout! "
        "Aborting update."}},
      {"the executable is locked",
       false,
       [](Scene& scene) { scene.host.FailNext("files.Rename", 32); },
       {"[ERROR] RenameSelf: Failed to rename executable - likely still locked (Error: 32)",
        "[ERROR] Update Step 6/7: Failed to rename self! Aborting update."}},
      {"the older .old is in use",
       false,
       [](Scene& scene) {
         scene.host.PutFile(std::string(kSelf) + ".old", "x");
         scene.host.files.Hold(std::string(kSelf) + ".old", {.read = true});
       },
       {"[ERROR] Update Step 6/7: Failed to rename self! Aborting update."}},
      {"own name unknown",
       false,
       [](Scene& scene) { scene.host.FailNext("system.ModulePath", 8); },
       {"[ERROR] RenameSelf: GetModuleFileNameW failed. Error: 8"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    Scene scene(host);
    row.arrange(scene);
    EXPECT_FALSE(scene.Run());
    EXPECT_FALSE(scene.terminate);
    EXPECT_EQ(scene.core_version.Current(), "1.2.2");
    EXPECT_EQ(SimulatedHost::ReadFile(kSelf), "MZ of 1.2.2");
    EXPECT_EQ(scene.Core().running, row.core_runs);
    EXPECT_FALSE(std::filesystem::exists(kWorkDirectory));
    EXPECT_THAT(scene.log.Lines(), LogHas(row.lines));
    EXPECT_THAT(scene.log.Lines(),
                LogHas({"[INFO] --- Update Sequence Finished (Overall Success: No) ---"}));
    EXPECT_THAT(scene.log.Lines(), LogLacks("msiexec.exe"));
  }
}

TEST(SelfUpdate, PutsItselfBackWhereTheInstallationFails) {
  struct Row {
    std::string what;
    std::function<void(Scene&)> arrange;
    LogText lines;
  };
  const auto publish = [](SimPackage package) {
    return [package](Scene& scene) { scene.Publish(package); };
  };
  const Row rows[] = {
      {"exit code 1603",
       publish({.version = "1.2.3", .install_exit_code = 1603}),
       {"[ERROR] Update: Installation command failed (Code: 1603). Check install log. Aborting "
        "update."}},
      {"never ends",
       publish({.version = "1.2.3", .install_time = 400s}),
       {"[ERROR] Installer: Install process timed out after 300 seconds. Terminating...",
        "[ERROR] Update: Installation command failed (Code: 258). Check install log. Aborting "
        "update."}},
      {"no Core in it",
       publish({.version = "1.2.3", .files = {"VOSK.exe"}}),
       {"[ERROR] Update: Core executable NOT FOUND after install at: " +
        text::PathToUtf8(InstalledCore())}},
      {"no VOSK in it",
       publish({.version = "1.2.3", .files = {"VELDRAN Core.exe"}}),
       {std::string("[ERROR] Update: New VOSK executable not found after install at: ") + kSelf +
        ". Cannot relaunch."}},
      {"elevation refused",
       [](Scene& scene) { scene.host.FailNext("processes.StartElevated", 1223, 2); },
       {"[WARN] Installer: Install step might have been cancelled (UAC Denied?).",
        "[ERROR] Update: Failed to execute install command. Aborting update."}},
      {"the new VOSK.exe is held for a moment",
       [](Scene& scene) {
         scene.host.FailNext("processes.Start", 740);
         scene.host.FailNext("files.Replace", 5, 9);
       },
       {"[ERROR] Update: FAILED to launch NEW VOSK manually! Error: 740"}},
      {"the new VOSK does not start",
       [](Scene& scene) { scene.host.FailNext("processes.Start", 740); },
       {"[ERROR] Update: FAILED to launch NEW VOSK manually! Error: 740"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    Scene scene(host);
    row.arrange(scene);
    EXPECT_FALSE(scene.Run());
    EXPECT_FALSE(scene.terminate);
    EXPECT_EQ(SimulatedHost::ReadFile(kSelf), "MZ of 1.2.2");
    EXPECT_FALSE(std::filesystem::exists(std::string(kSelf) + ".old"));
    EXPECT_FALSE(std::filesystem::exists(kWorkDirectory));
    LogText lines = row.lines;
    lines.emplace_back("[ERROR] Update: Update sequence failed at some step.");
    lines.emplace_back("[ERROR] Update: Attempting to rename self back from '.old'...");
    lines.emplace_back("[INFO] Update: Renamed self back successfully.");
    EXPECT_THAT(scene.log.Lines(), LogHas(lines));
  }
}

TEST(SelfUpdate, EndsTheSupervisorThatCannotBePutBack) {
  CheckedHost host;
  Scene scene(host);
  scene.Publish({.version = "1.2.3", .install_exit_code = 1603});
  host.FailNext("files.Replace", 32, 10);
  EXPECT_FALSE(scene.Run());
  EXPECT_TRUE(scene.terminate);
  EXPECT_THAT(scene.log.Lines(),
              LogHas({"[ERROR] Update: CRITICAL - Failed to rename self back! Manual intervention "
                      "required. Error: The process cannot access the file because it is being "
                      "used by another process."}));
}

// Whatever single call fails: never without an executable unless the operator is told and the
// supervisor ends, never two supervisors that go on, no handle kept of what was ended.
TEST(SelfUpdate, SurvivesEveryFault) {
  for (const bool install_fails : {false, true}) {
    support::SweepFaults([install_fails](SimulatedHost& host) {
      Scene scene(host);
      if (install_fails) scene.Publish({.version = "1.2.3", .install_exit_code = 1603});
      const bool success = scene.Run();
      const LogText lines = scene.log.Lines();
      const auto told = [&lines](const char* text) {
        return testing::Value(lines, testing::Contains(testing::HasSubstr(text)));
      };
      const bool critical = told("Update: CRITICAL - ");
      EXPECT_TRUE(std::filesystem::exists(kSelf) || critical);
      EXPECT_EQ(scene.terminate, success || critical);
      EXPECT_TRUE(success || host.processes.Running(kSelfName).size() == 1 ||
                  told("FAILED to launch NEW VOSK"));
      EXPECT_TRUE(scene.Core().running || !scene.hTargetProcess);
      EXPECT_EQ(host.installer.OpenHandles(), 0u);
      EXPECT_TRUE(!std::filesystem::exists(kWorkDirectory) ||
                  told("Update: Failed to fully cleanup temp directory: "));
      scene.hTargetProcess.Reset();
      scene.hProcDump.Reset();
    });
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace vosk::install
