#include "install/msi_installer.h"

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
using support::SimPackage;
using support::SimulatedHost;

// The installer with everything it needs.
struct Scene {
  explicit Scene(SimulatedHost& on) : host(on) {}

  bool Install() { return installer.AutomatedInstall(kTemp); }

  SimulatedHost& host;
  LogRecorder log{host};
  console::TransferProgress progress;
  process::ProcessControl processes{host.processes, log.Sink()};
  PreparedDownload download{host};
  MsiInstaller installer{host.Bundle(), log.Sink(), progress, processes, download};
};

std::string UninstallLine(const std::string& code) {
  return "/x " + code + " /qn MSIRESTARTMANAGERCONTROL=Disable /L*v \"" + kWorkDirectory +
         "/VELDRAN_Core_Uninstall_" + code + "_Log.txt\"";
}

constexpr char kInstallLine[] =
    "/i \"C:/temp/VELDRAN_Install/VELDRAN Core Installer.msi\" /qn TARGETDIR=\"C:\\Program "
    "Files\\VELDRAN Inc\\VELDRAN Core\" /L*v "
    "\"C:/temp/VELDRAN_Install/VELDRAN_Core_Install_Log.txt\"";

TEST(MsiInstaller, RemovesEveryOldVersionAndInstallsTheNewOne) {
  CheckedHost host;
  Scene scene(host);
  InstallOld(host, "1.1.0", kOlderProduct);
  InstallOld(host, "1.2.2", kOldProduct);
  host.PutFile(std::string(kWorkDirectory) + "/leftover.txt", "of an earlier run");
  scene.download.zip = PackageZip(host, {.version = "1.2.3"});
  EXPECT_TRUE(scene.Install());

  ASSERT_EQ(host.installer.products.size(), 1u);
  EXPECT_EQ(host.installer.products[0].package.version, "1.2.3");
  EXPECT_FALSE(std::filesystem::exists(kWorkDirectory));
  EXPECT_EQ(scene.progress.Percentage(), console::TransferProgress::kHidden);
  const std::string upgrade(identity::kCoreUpgradeCode);
  const std::string work(kWorkDirectory);
  const auto removed = [&](const std::string& code, const std::string& pid) -> LogText {
    const std::string log_path = work + "/VELDRAN_Core_Uninstall_" + code + "_Log.txt";
    return {"[INFO] Installer: Found related product with ProductCode: " + code +
                ". Attempting uninstall...",
            "[INFO] Installer: Enabling uninstall log: " + log_path,
            "[INFO] Installer: Executing Uninstall Command: msiexec.exe " + UninstallLine(code),
            "[INFO] Installer: Waiting for Uninstall process (PID: " + pid + ") for " + code +
                " to complete...",
            "[INFO] Installer: Uninstall for " + code + " finished with exit code: 0",
            "[INFO] Installer: Successfully uninstalled: " + code};
  };
  LogText expected{
      "[WARN] VELDRAN Core launch failed or requested. Attempting automated install/update.",
      "[INFO] Installer: Using temp directory: " + work,
      "[INFO] Installer: Downloading from: " + std::string(identity::kCorePackageUrl),
      "[INFO] Installer: Download complete: " + work + "/VELDRANCore_latest.zip",
      "[INFO] Installer: Attempting to extract MSI from: " + work + "/VELDRANCore_latest.zip",
      "[INFO] Installer: Found [VELDRAN Core Installer.msi] at index 0",
      "[INFO] Installer: Successfully extracted VELDRAN Core Installer.msi to " + work +
          "/VELDRAN Core Installer.msi",
      "[INFO] Installer: Ensuring latest version via Uninstall (by UpgradeCode) then Clean "
      "Install: " +
          work + "/VELDRAN Core Installer.msi",
      "[INFO] Installer: Step 1/2 - Finding and uninstalling existing versions using "
      "UpgradeCode: " +
          upgrade};
  for (const auto& line : removed(kOlderProduct, "1004")) expected.push_back(line);
  for (const auto& line : removed(kOldProduct, "1008")) expected.push_back(line);
  const LogText rest{
      "[INFO] Installer: Uninstall phase completed for existing versions found.",
      "[INFO] Installer: Step 2/2 - Performing clean install attempt...",
      "[INFO] Installer: Enabling install log: " + work + "/VELDRAN_Core_Install_Log.txt",
      std::string("[INFO] Installer: Executing Install Command: msiexec.exe ") + kInstallLine,
      "[INFO] Installer: Waiting for Install process (PID: 1012) to complete...",
      "[INFO] Installer: Install process finished with exit code: 0",
      "[INFO] Installer: Install command reported success (Exit Code: 0)",
      "[INFO] Installer: Pausing briefly after Install completion...",
      "[INFO] Installer: Confirmed target executable exists after installation: " +
          text::PathToUtf8(InstalledCore()),
      "[INFO] Installer: Cleaning up temporary files...",
      "[INFO] Installer: Temporary directory cleaned up.",
      "[INFO] Installer: VELDRAN Core installation process completed successfully."};
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_THAT(scene.log.Lines(), LogIs(expected));
}

// One thing is out of order in each row.
TEST(MsiInstaller, TellsWhatBecameOfEveryOddInstallation) {
  struct Row {
    std::string what;
    bool installed;
    std::function<void(Scene&)> arrange;
    LogText lines;
  };
  const auto package = [](Scene& scene, SimPackage odd) {
    odd.version = "1.2.3";
    scene.download.zip = PackageZip(scene.host, odd);
  };
  const std::string failed = "[ERROR] Installer: VELDRAN Core installation failed.";
  const std::string effective =
      "[ERROR] Installer: Install command failed, timed out, or exit code unavailable. Effective "
      "Exit Code: ";
  const Row rows[] = {
      {"no package",
       false,
       [](Scene& scene) { scene.download.zip.clear(); },
       {"[ERROR] Installer: Failed to download VELDRAN Core zip.", failed}},
      {"no MSI in it",
       false,
       [](Scene& scene) {
         scene.download.zip = support::ZipBytes({{"other.msi", "no"}});
       },
       {"[ERROR] Installer: Failed to extract MSI from zip.", failed}},
      {"reboot",
       true,
       [&](Scene& scene) { package(scene, {.install_exit_code = 3010}); },
       {"[WARN] Installer: Reboot may be required to complete installation."}},
      {"1641 is a failure",
       false,
       [&](Scene& scene) { package(scene, {.install_exit_code = 1641}); },
       {effective + "1641",
        "[ERROR] Installer: Check install log for details: C:/temp/VELDRAN_Install/"
        "VELDRAN_Core_Install_Log.txt",
        failed}},
      {"no executable in it",
       false,
       [&](Scene& scene) { package(scene, {.files = {"a.txt"}}); },
       {"[ERROR] Installer: Check install log for potential errors despite exit code 0/3010: "
        "C:/temp/VELDRAN_Install/VELDRAN_Core_Install_Log.txt",
        failed}},
      {"never ends",
       false,
       [&](Scene& scene) { package(scene, {.install_time = 301s}); },
       {"[ERROR] Installer: Install process timed out after 5 minutes. Terminating...",
        "[INFO] TerminateProcessL: TerminateProcess API succeeded for PID: 1004", effective + "259",
        failed}},
      {"elevation refused",
       false,
       [](Scene& scene) { scene.host.FailNext("processes.StartElevated", 1223); },
       {"[ERROR] Installer: Install execution cancelled (UAC denied?). Error: 1223", failed}},
      {"no installer",
       false,
       [](Scene& scene) { scene.host.FailNext("processes.StartElevated", 2); },
       {"[ERROR] Installer: ShellExecuteExW failed for Install command. Error: 2", failed}},
      {"wait fails",
       false,
       [](Scene& scene) { scene.host.FailNext("processes.WaitFor", 6); },
       {"[ERROR] Installer: WaitForSingleObject failed for Install process. Error: 6",
        effective + "259", failed}},
      {"exit code unreadable",
       false,
       [](Scene& scene) { scene.host.FailNext("processes.ExitCode", 6); },
       {"[WARN] Installer: Failed to get Install exit code after wait. Error: 6", effective + "259",
        failed}},
      {"products cannot be listed",
       true,
       [](Scene& scene) { scene.host.FailNext("installer.RelatedProduct", 1610); },
       {"[WARN] Installer: MsiEnumRelatedProductsW failed during enumeration with error code: "
        "1610. Uninstall phase might be incomplete."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    Scene scene(host);
    scene.download.zip = PackageZip(host, {.version = "1.2.3"});
    row.arrange(scene);
    EXPECT_EQ(scene.Install(), row.installed);
    EXPECT_THAT(scene.log.Lines(), LogHas(row.lines));
    EXPECT_FALSE(std::filesystem::exists(kWorkDirectory));
    EXPECT_TRUE(host.processes.Running(u"msiexec.exe").empty() || row.what == "wait fails");
  }
}

TEST(MsiInstaller, GoesOnAfterAnUninstallThatFailed) {
  struct Row {
    std::string what;
    std::function<void(SimulatedHost&)> arrange;
    LogText lines;
    bool clean = false;
  };
  const std::string code = kOldProduct;
  const Row rows[] = {
      {"not installed after all",
       [](SimulatedHost& host) { host.installer.uninstall_exit_code = 1605; },
       {"[INFO] Installer: Uninstall for " + code + " finished with exit code: 1605",
        "[INFO] Installer: Uninstall phase completed for existing versions found."},
       true},
      {"reboot wanted",
       [](SimulatedHost& host) { host.installer.uninstall_exit_code = 3010; },
       {"[WARN] Installer: Uninstall for " + code +
        " finished with unexpected code 3010. Check its log."}},
      {"takes too long",
       [](SimulatedHost& host) { host.installer.uninstall_time = 121s; },
       {"[WARN] Installer: Uninstall for " + code +
        " finished with unexpected code 259. Check its log."}},
      {"exit code unreadable",
       [](SimulatedHost& host) { host.FailNext("processes.ExitCode", 5); },
       {"[WARN] Installer: Failed to get Uninstall exit code for " + code + ". Error: 5"}},
      {"elevation refused",
       [](SimulatedHost& host) { host.FailNext("processes.StartElevated", 1223); },
       {"[ERROR] Installer: ShellExecuteExW failed for Uninstall command for " + code +
            ". Error: 1223",
        "[WARN] Installer: Uninstall for " + code + " might have been cancelled (UAC Denied?)."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    Scene scene(host);
    InstallOld(host, "1.2.2", kOldProduct);
    scene.download.zip = PackageZip(host, {.version = "1.2.3", .install_exit_code = 1603});
    row.arrange(host);
    EXPECT_FALSE(scene.Install());
    LogText lines = row.lines;
    if (!row.clean) {
      lines.emplace_back(
          "[WARN] Installer: One or more errors occurred during the uninstall phase. Check logs "
          "above. Proceeding with install attempt.");
      lines.emplace_back(
          "[WARN] Installer: Note: Errors also occurred during the prior uninstall phase. Check "
          "relevant uninstall logs.");
    }
    EXPECT_THAT(scene.log.Lines(), LogHas(lines));
  }
}

TEST(MsiInstaller, TakesNothingButAFileForAPackage) {
  CheckedHost host;
  Scene scene(host);
  std::filesystem::create_directories("C:/work/a.msi");
  EXPECT_FALSE(scene.installer.UninstallThenInstall("C:/work/a.msi"));
  EXPECT_FALSE(scene.installer.UninstallThenInstall("C:/work/b.msi"));
  EXPECT_THAT(
      scene.log.Lines(),
      LogHas({"[ERROR] Installer: Provided path is not a regular file: C:/work/a.msi",
              "[ERROR] Installer: MSI file does not exist or cannot be checked at C:/work/b.msi"}));
  EXPECT_THAT(scene.log.Lines(), LogLacks("msiexec.exe"));
}

// Whatever single call fails, the answer tells whether there is a Core, and nothing is left over
// without a word.
TEST(MsiInstaller, SurvivesEveryFault) {
  support::SweepFaults([](SimulatedHost& host) {
    Scene scene(host);
    InstallOld(host, "1.2.2", kOldProduct);
    host.clock.SetBudget(10min);
    scene.download.zip = PackageZip(host, {.version = "1.2.3"});
    const bool installed = scene.Install();
    EXPECT_TRUE(!installed || std::filesystem::exists(InstalledCore()));
    EXPECT_EQ(scene.progress.Percentage(), console::TransferProgress::kHidden);
    const bool told = testing::Value(
        scene.log.Lines(), testing::Contains(testing::ContainsRegex(
                               "Failed to (fully clean up temp|create temp install) directory")));
    EXPECT_TRUE(told || !std::filesystem::exists(kWorkDirectory));
    EXPECT_EQ(host.installer.OpenHandles(), 0u);
  });
}

}  // namespace
}  // namespace vosk::install
