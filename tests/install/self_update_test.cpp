#include "install/self_update.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "supervisor/watched_core.h"
#include "tests/install/install_scene.h"
#include "tests/support/sweep.h"

namespace vosk::install {
namespace {

using namespace std::chrono_literals;
using support::OnTerminate;
using support::SimPackage;
using support::SimulatedHost;

constexpr char kSelf[] = "C:/Program Files/VELDRAN Inc/VELDRAN Core/VOSK.exe";
const std::string kOld = std::string(kSelf) + ".old";
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
    auto process = Held(u"VELDRAN Core.exe", core_pid);
    core.Hold(std::move(process), core_pid);
    core.HoldMonitor(Held(u"procdump64.exe", monitor_pid));
  }

  platform::ProcessHandle Held(std::u16string_view name, platform::ProcessId& pid) {
    pid = host.processes.Add(std::u16string(name)).pid;
    auto handle = host.processes.Open(0x001F'FFFF, pid);
    return handle ? std::move(*handle) : platform::ProcessHandle();
  }

  void Publish(const SimPackage& package) { download.zip = PackageZip(host, package); }
  support::SimProcess& Core() { return host.processes.At(core_pid); }
  support::SimProcess& Monitor() { return host.processes.At(monitor_pid); }

  bool Run() {
    return update.Run({.expected_version = "1.2.3",
                       .dump_storage_directory = dump_storage_directory,
                       .core_directory = core_directory,
                       .log_root_directory = log_root_directory,
                       .end_core = [this] { return core.EndForUpdate(); }});
  }

  // Returns how it ended, and what there is now.
  std::string End(bool success) {
    const auto read = [](const std::string& path) {
      return std::filesystem::exists(path) ? SimulatedHost::ReadFile(path) : "none";
    };
    std::string end = fmt::format(
        "{}, VOSK ends: {}, tracks {}\nVOSK.exe {}, its .old {}, version file {}, work directory "
        "{}\nCore runs: {}, held: {}, monitor runs: {}, held: {}\n",
        success, terminate.load(), core_version.Current(), read(kSelf), read(kOld),
        read(kVersionFile), std::filesystem::exists(kWorkDirectory), Core().running, core.IsHeld(),
        Monitor().running, core.HasMonitor());
    for (const auto* self : host.processes.Running(kSelfName)) {
      end += fmt::format("VOSK {} {} in '{}', console of its own: {}\n", self->pid,
                         self->command_line, self->working_directory.value_or("").string(),
                         self->console == platform::ConsoleOfChild::new_console);
    }
    return end + fmt::format("after {}", host.clock.Elapsed());
  }

  SimulatedHost& host;
  support::LogRecorder log{host};
  process::ProcessControl processes{host.processes, log.Sink()};
  PreparedDownload download{host};
  CoreVersion core_version{host.files, log.Sink()};
  std::atomic<bool> terminate{false};
  CorePackage core_package{host.files, host.installer, log.Sink(), download};
  Msiexec msiexec{host.processes, processes};
  SelfUpdate update{host.Bundle(), log.Sink(),   processes, core_package,
                    msiexec,       core_version, terminate};
  std::filesystem::path dump_storage_directory = std::string(kTemp) + "/VELDRAN_VOSK_Dumps";
  std::filesystem::path log_root_directory = "C:/stats";
  std::filesystem::path core_directory = kCoreDirectory;
  platform::ProcessId core_pid = 0;
  platform::ProcessId monitor_pid = 0;
  supervisor::SupervisorState state;
  supervisor::Places places;
  dumps::ProcDumpAcquisition acquisition{host.files, host.system, log.Sink(), download};
  dumps::ProcDumpMonitor procdump_monitor{host.Bundle(), log.Sink(), state.red_alert_mode,
                                          acquisition};
  supervisor::WatchedCore core{host.Bundle(),    log.Sink(), processes,
                               procdump_monitor, places,     state};
};

using Row = std::pair<std::string, std::function<void(Scene&)>>;

std::function<void(Scene&)> Publishes(const SimPackage& package) {
  return [package](Scene& scene) { scene.Publish(package); };
}

std::function<void(Scene&)> Fails(const std::string& operation, std::uint32_t code, int times = 1) {
  return [=](Scene& scene) { scene.host.FailNext(operation, code, times); };
}

// Somebody reads the file and does not let it be removed.
std::function<void(Scene&)> Holds(const std::string& path) {
  return [path](Scene& scene) {
    scene.host.PutFile(path, "x");
    scene.host.files.Hold(path, {.read = true});
  };
}

void ExpectUpdates(const std::string& file, const std::vector<Row>& rows) {
  support::Variants variants;
  for (const auto& [name, change] : rows) {
    support::CheckedHost host;
    Scene scene(host);
    change(scene);
    const bool success = scene.Run();
    variants.Add(name, scene.log.Lines(), scene.End(success));
  }
  variants.Expect(file);
}

// Before the renaming, nothing is installed or removed.
TEST(SelfUpdate, LeavesTheInstallationAloneWhereItAbortsEarly) {
  ExpectUpdates(
      "install/self_update_preparation.txt",
      {{"as it should be", [](Scene&) {}},
       {"a newer package", Publishes({.version = "1.3.0"})},
       {"no version in it", Publishes({})},
       {"too old and in use",
        [](Scene& scene) {
          scene.Publish({.version = "1.2.2"});
          Holds(std::string(kWorkDirectory) + "/VELDRANCore_latest.zip")(scene);
        }},
       {"two numbers only", Publishes({.version = "9.9"})},
       {"no package", [](Scene& scene) { scene.download.zip.clear(); }},
       {"broken package", [](Scene& scene) { scene.download.zip = "PK"; }},
       {"no room to work", Fails("files.CreateDirectories", 5)},
       {"no place to work", [](Scene& scene) { scene.dump_storage_directory = "Dumps"; }},
       {"nothing runs",
        [](Scene& scene) {
          scene.core.Forget();
          scene.core.DropMonitor();
        }},
       {"both have just ended",
        [](Scene& scene) {
          scene.host.processes.End(scene.Core(), 0);
          scene.host.processes.End(scene.Monitor(), 0);
        }},
       {"the monitor lingers",
        [](Scene& scene) { scene.Monitor().on_terminate = OnTerminate::dies_late; }},
       {"the Core stays",
        [](Scene& scene) {
          scene.host.choke.faults.Add({.scope = "processes.Terminate", .first = 2, .code = 87});
        }},
       {"no logs known", [](Scene& scene) { scene.log_root_directory.clear(); }},
       {"no version file", [](Scene&) { std::filesystem::remove(kVersionFile); }},
       {"an older .old", [](Scene& scene) { scene.host.PutFile(kOld, "x"); }},
       {"the older .old is in use", Holds(kOld)},
       {"VOSK.exe is in use", [](Scene& scene) { scene.host.files.Hold(kSelf, {.read = true}); }},
       {"the older .old cannot be removed",
        [](Scene& scene) {
          scene.host.PutFile(kOld, "x");
          scene.host.choke.on_operation = [&scene](auto operation, const std::string& subject) {
            if (operation == "files.Remove" && subject == kOld) {
              scene.host.files.Hold(kOld, {.read = true});
            }
          };
        }},
       {"the version file is in use", Holds(kVersionFile)},
       {"the executable is locked for a moment", Fails("files.Rename", 32, 9)},
       {"the executable is locked", Fails("files.Rename", 32, 10)},
       {"no room for the .old", Fails("files.Rename", 112)},
       {"the next boot cannot be told", Fails("files.RenameAtNextBoot", 5)},
       {"own name unknown", Fails("system.ModulePath", 8)},
       {"own name unknown later", [](Scene& scene) {
          scene.host.choke.faults.Add({.scope = "system.ModulePath", .first = 2, .code = 8});
        }}});
}

// While the executable is out of its place.
std::vector<Row> BlowsToTheStretch() {
  return {{"something is thrown",
           [](Scene& scene) {
             scene.host.choke.on_operation = [](auto operation, const std::string&) {
               if (operation == "processes.StartElevated") throw std::runtime_error("no memory");
             };
           }},
          {"Ctrl+C is pressed",
           [](Scene& scene) {
             scene.host.At(2s, [](SimulatedHost& at) {
               EXPECT_TRUE(at.system.Control(platform::ControlEvent::interrupt));
             });
           }},
          {"the console is closed", [](Scene& scene) {
             scene.host.At(2s, [](SimulatedHost& at) {
               EXPECT_FALSE(at.system.Control(platform::ControlEvent::console_closed));
               EXPECT_EQ(SimulatedHost::ReadFile(kSelf), "MZ of 1.2.2");
             });
           }}};
}

// After the renaming, it ends with a new VOSK or puts itself back.
TEST(SelfUpdate, PutsItselfBackWhereTheInstallationFails) {
  const SimPackage broken{.version = "1.2.3", .install_exit_code = 1603};
  const auto held = [&](std::uint32_t code, int times) {
    return [=](Scene& scene) {
      scene.Publish(broken);
      scene.host.FailNext("files.Replace", code, times);
    };
  };
  std::vector<Row> rows = {
      {"as it should be", [](Scene&) {}},
      {"the installer starts the new VOSK",
       [](Scene& scene) {
         scene.host.installer.on_installed = [&scene](const auto&) {
           scene.host.processes.Add(std::u16string(kSelfName));
         };
       }},
      {"somebody asks for the version",
       [](Scene& scene) {
         scene.host.At(14s, [](SimulatedHost& at) {
           auto& query = at.processes.Add(std::u16string(kSelfName));
           at.At(15s, [&query](SimulatedHost& later) { later.processes.End(query, 0); });
         });
       }},
      {"the new VOSK ends at once",
       [](Scene& scene) {
         scene.host.processes.SetProgram("VOSK.exe", scene.host.LivesFor(1900ms, 1));
       }},
      {"a Core in VOSK's own folder",
       [](Scene& scene) {
         scene.core_directory = "C:/Kit";
         scene.host.system.module_path = "C:/Kit/VOSK.exe";
         scene.host.InstallProgram("C:/Kit/VOSK.exe");
       }},
      {"reboot wanted", Publishes({.version = "1.2.3", .install_exit_code = 3010})},
      {"no version installed", [](Scene& scene) { scene.host.installer.products.clear(); }},
      {"not installed after all",
       [](Scene& scene) { scene.host.installer.uninstall_exit_code = 1605; }},
      {"the old version cannot be removed",
       [](Scene& scene) { scene.host.installer.uninstall_exit_code = 1603; }},
      {"products cannot be listed", Fails("installer.RelatedProduct", 1610)},
      {"elevation refused", Fails("processes.StartElevated", 1223, 2)},
      {"another installation runs", [](Scene& scene) { scene.host.installer.busy_until = 20s; }},
      {"exit code 1603", Publishes(broken)},
      {"never ends", Publishes({.version = "1.2.3", .install_time = 301s})},
      {"no Core in it", Publishes({.version = "1.2.3", .files = {"VOSK.exe"}})},
      {"no VOSK in it", Publishes({.version = "1.2.3", .files = {"VELDRAN Core.exe"}})},
      {"the new VOSK does not start", Fails("processes.Start", 740)},
      {"VOSK.exe is held for a moment", held(5, 9)},
      {"VOSK.exe is held", held(32, 10)}};
  for (const Row& row : BlowsToTheStretch()) rows.push_back(row);
  ExpectUpdates("install/self_update_replacement.txt", rows);
}

// Whatever single call fails: if the executable is missing, the operator is told and the supervisor
// ends; never do two supervisors go on, and no handle of an ended process is kept.
TEST(SelfUpdate, SurvivesEveryFault) {
  for (const bool install_fails : {false, true}) {
    support::SweepFaults([install_fails](SimulatedHost& host) {
      Scene scene(host);
      if (install_fails) scene.Publish({.version = "1.2.3", .install_exit_code = 1603});
      const bool success = scene.Run();
      const auto lines = scene.log.Lines();
      const auto told = [&lines](const char* text) {
        return testing::Value(lines, testing::Contains(testing::HasSubstr(text)));
      };
      const bool critical = told("Update: CRITICAL - ");
      EXPECT_TRUE(std::filesystem::exists(kSelf) || critical);
      EXPECT_EQ(scene.terminate, success || critical);
      EXPECT_TRUE(success || host.processes.Running(kSelfName).size() == 1 ||
                  told("FAILED to launch NEW VOSK"));
      EXPECT_TRUE(scene.Core().running || !scene.core.IsHeld());
    });
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace vosk::install
