// Packages, what is installed of them, and msiexec.exe, which runs elevated.
#include "platform/installer.h"

#include <fmt/format.h>

#include <algorithm>

#include "install/core_package.h"
#include "install/msiexec.h"
#include "tests/contract/host_under_test.h"

namespace vosk::contract {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Codes = std::vector<std::string>;

class InstallerContract : public Contract {
 protected:
  // An earlier run may have been broken off.
  InstallerContract() {
    for (const std::string& product : kProducts) Remove(product);
  }

  // Returns the products of the family, in alphabetical order.
  Codes Installed() {
    Codes products;
    auto product = host_.installer.RelatedProduct(kFamily, 0);
    for (std::uint32_t next = 1; product; ++next) {
      products.push_back(*product);
      product = host_.installer.RelatedProduct(kFamily, next);
    }
    EXPECT_EQ(CodeOf(product), 259u);
    std::ranges::sort(products);
    return products;
  }

  // Returns the exit code of msiexec.exe.
  std::uint32_t Msiexec(const std::string& arguments) {
    const auto process = host_.processes.StartElevated("msiexec.exe", arguments);
    EXPECT_TRUE(process) << CodeOf(process);
    if (!process) return platform::kStillActive;
    EXPECT_TRUE(host_.processes.Id(*process));
    EXPECT_EQ(host_.processes.WaitFor(*process, 120s), platform::WaitOutcome::finished);
    return host_.processes.ExitCode(*process).value_or(platform::kStillActive);
  }
  std::uint32_t Install(const fs::path& package) {
    return Msiexec(install::InstallArguments(package, log_));
  }
  std::uint32_t Remove(const std::string& product) {
    return Msiexec(install::UninstallArguments(product, log_));
  }

  const fs::path log_ = scratch_ / "msiexec log.txt";
};

TEST_F(InstallerContract, APackageTellsItsVersion) {
  const auto database = host_.installer.OpenDatabase(side_->Package(1));
  ASSERT_TRUE(database) << CodeOf(database);
  const auto view = host_.installer.OpenView(
      *database, "SELECT `Value` FROM `Property` WHERE `Property` = 'ProductVersion'");
  ASSERT_TRUE(view) << CodeOf(view);
  EXPECT_TRUE(host_.installer.Execute(*view));
  {
    const auto record = host_.installer.Fetch(*view);
    ASSERT_TRUE(record) << CodeOf(record);
    EXPECT_EQ(host_.installer.FieldText(*record, 1), "1.2.1");
  }
  EXPECT_EQ(CodeOf(host_.installer.Fetch(*view)), 259u);
  EXPECT_EQ(CodeOf(host_.installer.OpenView(*database, "SELECT")), 1615u);
  PutBytes(scratch_ / "text.msi", "This is no package.");
  // 110 or 1620 on Windows, 1627 under Wine.
  for (const char* bad : {"text.msi", "missing.msi"}) {
    EXPECT_FALSE(host_.installer.OpenDatabase(scratch_ / bad)) << bad;
  }
}

TEST_F(InstallerContract, ProductsComeAndGo) {
  const auto file = [](int number) {
    return install::InstalledCore().parent_path() / fmt::format("contract {}.txt", number);
  };
  for (const int number : {1, 2}) {
    EXPECT_EQ(Install(side_->Package(number)), 0u);
    EXPECT_EQ(host_.files.Exists(file(number)), true);
    EXPECT_GT(host_.files.SizeOf(log_).value_or(0), 0u);
  }
  EXPECT_EQ(Installed(), Codes(kProducts.begin(), kProducts.end()));
  // Wine lists no product of a family that has lost one, so the other is looked for on the disk.
  EXPECT_EQ(Remove(kProducts[0]), 0u);
  EXPECT_EQ(host_.files.Exists(file(1)), false);
  EXPECT_EQ(host_.files.Exists(file(2)), true);
  EXPECT_EQ(Remove(kProducts[0]), 1605u) << "it is not installed";
  EXPECT_EQ(Remove(kProducts[1]), 0u);
  EXPECT_EQ(Installed(), Codes{});
  EXPECT_NE(Install(scratch_ / "missing.msi"), 0u) << "1619 on Windows, 2 under Wine";
  EXPECT_EQ(CodeOf(host_.processes.StartElevated("missing.exe", "")), 2u);
}

}  // namespace
}  // namespace vosk::contract
