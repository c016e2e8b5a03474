#include "install/msi_installer.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/install/install_scene.h"
#include "tests/support/meddling_files.h"
#include "tests/support/transcript.h"

namespace vosk::install {
namespace {

using namespace std::chrono_literals;
using support::SimPackage;
using support::SimulatedHost;

// The installer with everything it needs.
struct Scene {
  Scene(SimulatedHost& on, console::LogSink& log)
      : host(on),
        processes(host.processes, log),
        core_package(files, host.installer, log, download),
        installer({host.clock, host.console, host.dump_writer, files, host.installer, host.machine,
                   host.processes, host.registry, host.system},
                  log, progress, core_package, msiexec) {
    Publish({});
    files.before_exists = files.before_create_directories = [this](const auto&) {
      stages.insert(progress.ActivityLabel());
    };
  }
  void Publish(SimPackage package) {
    package.version = "1.2.3";
    download.zip = PackageZip(host, package);
  }
  // Returns how it ended, and what there is now.
  std::string End(bool installed) {
    std::string end = fmt::format("{}, there is a Core: {}, a work directory: {}, progress {}\n",
                                  installed, std::filesystem::exists(InstalledCore()),
                                  std::filesystem::exists(kWorkDirectory), progress.Percentage());
    for (const auto& product : host.installer.products)
      end += product.package.version + " is installed\n";
    for (const auto* process : host.processes.Running(u"msiexec.exe")) {
      end += process->command_line + " runs on\n";
    }
    return end + fmt::format("after {}, stages [{}]", host.clock.Elapsed(), fmt::join(stages, " "));
  }

  SimulatedHost& host;
  support::MeddlingFiles files{host.files};
  console::TransferProgress progress;
  std::set<std::string> stages;  // those that were shown
  process::ProcessControl processes;
  PreparedDownload download{host};
  CorePackage core_package;
  Msiexec msiexec{host.processes, processes};
  MsiInstaller installer;
};

// This covers everything after the download; the rest is below and in the tests of CorePackage.
TEST(MsiInstaller, TellsOfEveryFault) {
  support::ExpectFaultTranscript(
      "install/msi_installer_faults.txt",
      {.arrange = [](SimulatedHost& host) { InstallOld(host, "1.2.2", kOldProduct); },
       .act =
           [](SimulatedHost& host, console::LogSink& log) {
             Scene scene(host, log);
             host.PutFile("C:/msi/core.msi", host.installer.MakePackage({.version = "1.2.3"}));
             return scene.End(scene.installer.UninstallThenInstall("C:/msi/core.msi"));
           }});
}

// In each variant one thing is out of order.
TEST(MsiInstaller, TellsWhatBecameOfEveryOddInstallation) {
  const auto package = [](const SimPackage& odd) {
    return [odd](Scene& scene) { scene.Publish(odd); };
  };
  const auto fails = [](const char* operation, std::uint32_t code) {
    return [=](Scene& scene) { scene.host.FailNext(operation, code); };
  };
  const auto uninstall = [](std::uint32_t exit_code) {
    return [exit_code](Scene& scene) { scene.host.installer.uninstall_exit_code = exit_code; };
  };
  const std::pair<std::string, std::function<void(Scene&)>> rows[] = {
      {"an old version", [](Scene&) {}},
      {"two old versions",
       [](Scene& scene) {
         InstallOld(scene.host, "1.1.0", kOlderProduct);
         scene.host.PutFile(std::string(kWorkDirectory) + "/leftover.txt", "of an earlier run");
       }},
      {"no old version", [](Scene& scene) { scene.host.installer.products.clear(); }},
      {"no package", [](Scene& scene) { scene.download.zip.clear(); }},
      {"a broken package", [](Scene& scene) { scene.download.zip = "PK"; }},
      {"no work directory", fails("files.CreateDirectories", 5)},
      {"a leftover in use",
       [](Scene& scene) {
         const std::string leftover = std::string(kWorkDirectory) + "/leftover.txt";
         scene.host.PutFile(leftover, "of an earlier run");
         scene.host.files.Hold(leftover, {});
       }},
      {"installed, reboot wanted", package({.install_exit_code = 3010})},
      {"another installation runs", [](Scene& scene) { scene.host.installer.busy_until = 20s; }},
      {"another installation runs, no old version",
       [](Scene& scene) {
         scene.host.installer.busy_until = 10s;
         scene.host.installer.products.clear();
       }},
      {"1641 is a failure", package({.install_exit_code = 1641})},
      {"no executable in it", package({.files = {"a.txt"}})},
      {"the installer takes just long enough", package({.install_time = 300s})},
      {"the installer never ends", package({.install_time = 301s})},
      {"not installed after all", uninstall(1605)},
      {"removed, reboot wanted", uninstall(3010)},
      {"the removal takes too long",
       [](Scene& scene) { scene.host.installer.uninstall_time = 121s; }},
      {"the removal is refused, the installation fails",
       [&](Scene& scene) {
         scene.Publish({.install_exit_code = 1603});
         fails("processes.StartElevated", 1223)(scene);
       }},
  };
  support::Variants variants;
  for (const auto& [name, change] : rows) {
    support::CheckedHost host;
    InstallOld(host, "1.2.2", kOldProduct);
    support::LogRecorder log(host);
    Scene scene(host, log.Sink());
    change(scene);
    const bool installed = scene.installer.AutomatedInstall(kTemp);
    variants.Add(name, log.Lines(), scene.End(installed));
  }
  variants.Expect("install/msi_installer.txt");
}

TEST(Msiexec, WaitsFiveMinutesForAnotherInstallation) {
  support::CheckedHost host;
  support::LogRecorder log(host);
  int attempts = 0;
  const auto refused = [&attempts] { return ++attempts, std::optional(kInstallerBusy); };
  EXPECT_EQ(RepeatWhileBusy(host.clock, log.Sink(), refused), kInstallerBusy);
  EXPECT_EQ(attempts, 21);
  EXPECT_EQ(host.clock.Elapsed(), 5min);
}

TEST(MsiInstaller, TakesNothingButAFileForAPackage) {
  support::CheckedHost host;
  support::LogRecorder log(host);
  Scene scene(host, log.Sink());
  std::filesystem::create_directories("C:/msi/a.msi");
  host.PutFile("c.msi", "without a folder");
  std::string ends;
  for (const char* msi : {"C:/msi/a.msi", "C:/msi/b.msi", "c.msi"}) {
    ends += scene.End(scene.installer.UninstallThenInstall(msi)) + '\n';
  }
  support::Variants packages;
  packages.Add("a directory, nothing, and a file without a folder", log.Lines(), ends);
  packages.Expect("install/no_package.txt");
}

}  // namespace
}  // namespace vosk::install
