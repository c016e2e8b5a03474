// The installer service of the simulated system: packages, installed products and msiexec.exe.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "identity.h"
#include "platform/installer.h"
#include "simulation/files.h"
#include "simulation/processes.h"

namespace vosk::simulation {

struct SimPackage {
  std::string product_code = {};
  std::string version = {};  // empty: the package has none
  std::string upgrade_code = std::string(identity::kCoreUpgradeCode);
  // The files that installing puts into the target directory.
  std::vector<std::string> files = {"VELDRAN Core.exe", "VOSK.exe"};
  std::uint32_t install_exit_code = 0;  // nothing is installed unless 0 or 3010
  Duration install_time{8'000};
};

struct SimProduct {
  SimPackage package;
  std::filesystem::path directory;
};

class SimInstaller : public platform::Installer {
 public:
  SimInstaller(ChokePoint& choke, SimClock& clock, SimProcesses& processes, SimFiles& files);

  platform::Result<platform::PackageDatabase> OpenDatabase(
      const std::filesystem::path& package) override;
  platform::Result<platform::DatabaseView> OpenView(const platform::PackageDatabase& database,
                                                    const std::string& query) override;
  platform::Result<> Execute(const platform::DatabaseView& view) override;
  platform::Result<platform::DatabaseRecord> Fetch(const platform::DatabaseView& view) override;
  platform::Result<std::string> FieldText(const platform::DatabaseRecord& record,
                                          std::uint32_t field) override;
  platform::Result<std::string> RelatedProduct(const std::string& upgrade_code,
                                               std::uint32_t index) override;
  void CloseHandleValue(platform::HandleValue value) override;

  // Returns the bytes of an MSI file that is this package.
  std::string MakePackage(SimPackage package);
  // Installs at once, as if long ago.
  void Install(const SimPackage& package, const std::filesystem::path& directory);
  // Returns what an installed file holds, so that tests know which package it is from.
  [[nodiscard]] static std::string FileOf(const SimPackage& package);

  std::vector<SimProduct> products;                  // in the order of enumeration
  std::optional<std::uint32_t> uninstall_exit_code;  // if set, nothing is removed
  Duration uninstall_time{3'000};
  Duration busy_until{0};  // until then another installation runs
  bool hangs = false;      // msiexec.exe never ends by itself
  // Called when msiexec.exe has installed a product.
  std::function<void(const SimProduct&)> on_installed;

  [[nodiscard]] std::size_t OpenHandles() const { return open_.size(); }

 private:
  enum class Kind { database, view, executed_view, record };
  struct OpenHandle {
    Kind kind;
    SimPackage package;
    std::string text = {};  // a view's query, a record's field
  };
  platform::HandleValue NewHandle(OpenHandle handle);
  [[nodiscard]] OpenHandle* Reach(platform::HandleValue value, Kind kind);

  void RunMsiexec(SimProcess& self);
  std::uint32_t InstallFrom(const std::string& command_line);
  std::uint32_t RemoveProduct(const std::string& product_code);

  ChokePoint& choke_;
  SimClock& clock_;
  SimProcesses& processes_;
  SimFiles& files_;
  std::map<std::string, SimPackage> packages_;  // by their bytes
  std::map<platform::HandleValue, OpenHandle> open_;
  platform::HandleValue next_handle_ = 1;
};

}  // namespace vosk::simulation
