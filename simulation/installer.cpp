#include "simulation/installer.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "text/utf.h"

namespace vosk::simulation {

namespace fs = std::filesystem;
using platform::ErrorCode;
using platform::Result;

namespace {

constexpr std::string_view kProductVersionQuery =
    "SELECT `Value` FROM `Property` WHERE `Property` = 'ProductVersion'";
constexpr ErrorCode kOpenFailed{110};
constexpr ErrorCode kBadQuery{1615};
constexpr ErrorCode kFunctionFailed{1627};
constexpr std::uint32_t kUnknownProduct = 1605;
constexpr std::uint32_t kRebootRequired = 3010;
constexpr std::uint32_t kBusy = 1618;
constexpr std::uint32_t kPackageOpenFailed = 1619;
constexpr std::uint32_t kPackageInvalid = 1620;
constexpr std::uint32_t kInvalidCommandLine = 1639;

std::string BytesOf(const fs::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

// Returns the text in double quotes after the mark; empty if the mark is missing.
std::string QuotedAfter(const std::string& command_line, const std::string& mark) {
  const std::size_t at = command_line.find(mark + '"');
  if (at == std::string::npos) return {};
  const std::size_t begin = at + mark.size() + 1;
  return command_line.substr(begin, command_line.find('"', begin) - begin);
}

}  // namespace

SimInstaller::SimInstaller(ChokePoint& choke, SimClock& clock, SimProcesses& processes,
                           SimFiles& files)
    : choke_(choke), clock_(clock), processes_(processes), files_(files) {
  processes_.SetProgram("msiexec.exe", [this](SimProcess& self) { RunMsiexec(self); });
}

std::string SimInstaller::MakePackage(SimPackage package) {
  const std::string bytes = fmt::format("MSI package {}\n", packages_.size() + 1);
  if (package.product_code.empty()) {
    package.product_code = fmt::format("{{00000000-0000-0000-0000-{:012}}}", packages_.size() + 1);
  }
  packages_.emplace(bytes, std::move(package));
  return bytes;
}

std::string SimInstaller::FileOf(const SimPackage& package) {
  return "MZ of " + package.version;
}

void SimInstaller::Install(const SimPackage& package, const fs::path& directory) {
  fs::create_directories(directory);
  for (const std::string& name : package.files) {
    std::ofstream(directory / name, std::ios::binary) << FileOf(package);
  }
  products.push_back({package, directory});
}

platform::HandleValue SimInstaller::NewHandle(OpenHandle handle) {
  open_.emplace(next_handle_, std::move(handle));
  return next_handle_++;
}

SimInstaller::OpenHandle* SimInstaller::Reach(platform::HandleValue value, Kind kind) {
  const auto open = open_.find(value);
  return open != open_.end() && open->second.kind == kind ? &open->second : nullptr;
}

void SimInstaller::CloseHandleValue(platform::HandleValue value) {
  choke_.Note("installer.Close", {});
  open_.erase(value);
}

Result<platform::PackageDatabase> SimInstaller::OpenDatabase(const fs::path& package) {
  using Answer = Result<platform::PackageDatabase>;
  return choke_.Perform("installer.OpenDatabase", package.string(), [&]() -> Answer {
    const auto known = packages_.find(BytesOf(package));
    if (known == packages_.end()) return tl::unexpected(kOpenFailed);
    return platform::PackageDatabase(NewHandle({Kind::database, known->second}), *this);
  });
}

Result<platform::DatabaseView> SimInstaller::OpenView(const platform::PackageDatabase& database,
                                                      const std::string& query) {
  return choke_.Perform("installer.OpenView", query, [&]() -> Result<platform::DatabaseView> {
    const OpenHandle* open = Reach(database.Value(), Kind::database);
    if (open == nullptr) return tl::unexpected(platform::kInvalidHandle);
    if (query != kProductVersionQuery) return tl::unexpected(kBadQuery);
    return platform::DatabaseView(NewHandle({Kind::view, open->package, query}), *this);
  });
}

Result<> SimInstaller::Execute(const platform::DatabaseView& view) {
  return choke_.Perform("installer.Execute", {}, [&]() -> Result<> {
    OpenHandle* open = Reach(view.Value(), Kind::view);
    if (open == nullptr) return tl::unexpected(platform::kInvalidHandle);
    open->kind = Kind::executed_view;
    return {};
  });
}

Result<platform::DatabaseRecord> SimInstaller::Fetch(const platform::DatabaseView& view) {
  return choke_.Perform("installer.Fetch", {}, [&]() -> Result<platform::DatabaseRecord> {
    OpenHandle* open = Reach(view.Value(), Kind::executed_view);
    if (open == nullptr) return tl::unexpected(kFunctionFailed);
    if (open->package.version.empty() || open->text.empty()) {
      return tl::unexpected(platform::kNoMoreItems);
    }
    open->text.clear();
    return platform::DatabaseRecord(NewHandle({Kind::record, open->package, open->package.version}),
                                    *this);
  });
}

Result<std::string> SimInstaller::FieldText(const platform::DatabaseRecord& record,
                                            std::uint32_t field) {
  return choke_.Perform("installer.FieldText", {}, [&]() -> Result<std::string> {
    const OpenHandle* open = Reach(record.Value(), Kind::record);
    if (open == nullptr) return tl::unexpected(platform::kInvalidHandle);
    return field == 1 ? open->text : "";
  });
}

Result<std::string> SimInstaller::RelatedProduct(const std::string& upgrade_code,
                                                 std::uint32_t index) {
  const std::string subject = fmt::format("{} {}", upgrade_code, index);
  return choke_.Perform("installer.RelatedProduct", subject, [&]() -> Result<std::string> {
    for (const SimProduct& product : products) {
      if (product.package.upgrade_code != upgrade_code) continue;
      if (index-- == 0) return product.package.product_code;
    }
    return tl::unexpected(platform::kNoMoreItems);
  });
}

// The work is done at the end of its time, so that nothing has changed if it is ended early.
void SimInstaller::RunMsiexec(SimProcess& self) {
  if (hangs) return;
  if (clock_.Elapsed() < busy_until) return processes_.End(self, kBusy);
  const bool installs = self.command_line.find(" /i ") != std::string::npos;
  Duration time = uninstall_time;
  if (installs) {
    const auto known = packages_.find(BytesOf(QuotedAfter(self.command_line, "/i ")));
    if (known != packages_.end()) time = known->second.install_time;
  }
  clock_.After(time, [this, installs, pid = self.pid] {
    SimProcess& msiexec = processes_.At(pid);
    if (!msiexec.running) return;
    const std::string log = QuotedAfter(msiexec.command_line, "/L*v ");
    std::ofstream(text::PathFromUtf8(log)) << "MSI (c) log of " << msiexec.command_line << '\n';
    std::uint32_t exit_code = kInvalidCommandLine;
    if (installs) {
      exit_code = InstallFrom(msiexec.command_line);
    } else if (const auto at = msiexec.command_line.find(" /x {"); at != std::string::npos) {
      constexpr std::size_t kCodeLength = 38;
      exit_code = RemoveProduct(msiexec.command_line.substr(at + 4, kCodeLength));
    }
    processes_.End(msiexec, exit_code);
  });
}

std::uint32_t SimInstaller::InstallFrom(const std::string& command_line) {
  const fs::path msi = text::PathFromUtf8(QuotedAfter(command_line, "/i "));
  const std::string bytes = BytesOf(msi);
  if (bytes.empty()) return kPackageOpenFailed;
  const auto known = packages_.find(bytes);
  if (known == packages_.end()) return kPackageInvalid;
  const SimPackage& package = known->second;
  if (package.install_exit_code != 0 && package.install_exit_code != kRebootRequired) {
    return package.install_exit_code;
  }
  Install(package, text::PathFromUtf8(QuotedAfter(command_line, "TARGETDIR=")));
  if (on_installed) on_installed(products.back());
  return package.install_exit_code;
}

std::uint32_t SimInstaller::RemoveProduct(const std::string& product_code) {
  if (uninstall_exit_code) return *uninstall_exit_code;
  const auto product = std::ranges::find(
      products, product_code, [](const SimProduct& at) { return at.package.product_code; });
  if (product == products.end()) return kUnknownProduct;
  std::uint32_t exit_code = 0;
  for (const std::string& name : product->package.files) {
    std::error_code ignored;
    // A file in use is removed when the machine restarts.
    if (!files_.MayRemove(product->directory / name)) {
      exit_code = kRebootRequired;
    } else {
      fs::remove(product->directory / name, ignored);
    }
  }
  products.erase(product);
  return exit_code;
}

}  // namespace vosk::simulation
