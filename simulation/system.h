// The rest of the simulated system: its known places, COM, message boxes and the dump writer.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/dump_writer.h"
#include "platform/system.h"
#include "simulation/dumps.h"
#include "simulation/files.h"
#include "simulation/processes.h"

namespace vosk::simulation {

struct ShownBox {
  std::string title;
  std::string text;
};

class SimSystem : public platform::System {
 public:
  explicit SimSystem(ChokePoint& choke) : choke_(choke) {}

  platform::Result<std::filesystem::path> TempPath() override;
  platform::Result<std::filesystem::path> ModulePath() override;
  platform::Result<std::filesystem::path> RoamingAppDataPath() override;
  platform::Result<std::string> ComputerName() override;
  platform::Result<> InitializeCom() override;
  void UninitializeCom() override;
  platform::Result<> SetControlHandler(platform::ControlHandler handler) override;
  void RemoveControlHandler() override;
  void ShowErrorBox(const std::string& title, const std::string& text) override;

  // Somebody presses Ctrl+C, closes the window, shuts the machine down: true if VOSK goes on.
  bool Control(platform::ControlEvent event);
  [[nodiscard]] bool HasControlHandler() const { return control_handler_ != nullptr; }
  // It ends with its process.
  void ForgetControlHandler() { control_handler_ = nullptr; }
  std::filesystem::path temp_path = "C:/Users/op/AppData/Local/Temp/";
  std::filesystem::path module_path = "C:/VOSK/VOSK.exe";
  std::filesystem::path roaming_path = "C:/Users/op/AppData/Roaming";
  std::string computer_name = "RIG-7";
  std::vector<ShownBox> boxes;
  int com_initialisations = 0;  // those that were not undone yet

 private:
  ChokePoint& choke_;
  platform::ControlHandler control_handler_;
};

class SimDumpWriter : public platform::DumpWriter {
 public:
  SimDumpWriter(ChokePoint& choke, SimProcesses& processes, SimFiles& files, DumpLedger& ledger)
      : choke_(choke), processes_(processes), files_(files), ledger_(ledger) {}

  platform::Result<platform::DumpFileHandle> CreateDumpFile(
      const std::filesystem::path& path) override;
  platform::Result<> WriteDump(const platform::ProcessHandle& process, platform::ProcessId pid,
                               const platform::DumpFileHandle& file,
                               std::uint32_t dump_type) override;
  void CloseHandleValue(platform::HandleValue value) override;

  [[nodiscard]] std::size_t OpenHandles() const { return open_.size(); }

 private:
  ChokePoint& choke_;
  SimProcesses& processes_;
  SimFiles& files_;
  DumpLedger& ledger_;
  std::map<platform::HandleValue, std::filesystem::path> open_;
  platform::HandleValue next_handle_ = 0x10000;
};

}  // namespace vosk::simulation
