// What the tests of installing share: packages to download, and the services over one host.
#pragma once

#include <filesystem>
#include <string>

#include "identity.h"
#include "install/msi_installer.h"
#include "install/self_update.h"
#include "install/work_directory.h"
#include "simulation/zip_bytes.h"
#include "tests/support/checked_host.h"
#include "tests/support/fake_downloader.h"
#include "tests/support/log_matchers.h"
#include "tests/support/variants.h"
#include "text/utf.h"

namespace vosk::install {

inline constexpr char kTemp[] = "C:/temp";
inline constexpr char kWorkDirectory[] = "C:/temp/VELDRAN_Install";
inline constexpr char kCoreDirectory[] = "C:/Program Files/VELDRAN Inc/VELDRAN Core";
inline constexpr char16_t kSelfName[] = u"VOSK.exe";

// A download of prepared bytes.
struct PreparedDownload : support::FakeDownloader {
  explicit PreparedDownload(support::SimulatedHost& host) {
    fetch = [this, &host](const std::string& url, const std::filesystem::path& destination) {
      EXPECT_EQ(url, identity::kCorePackageUrl);
      if (!zip.empty()) host.PutFile(destination, zip);
      return !zip.empty();
    };
  }

  std::string zip;  // empty: the server has none
};

[[nodiscard]] inline std::string PackageZip(support::SimulatedHost& host,
                                            const support::SimPackage& package) {
  return support::ZipBytes({{std::string(kMsiName), host.installer.MakePackage(package)}});
}

// Installs a package, as if long ago, in the Core's place.
inline void InstallOld(support::SimulatedHost& host, const std::string& version,
                       const std::string& product_code) {
  host.installer.Install({.product_code = product_code, .version = version}, kCoreDirectory);
}

inline constexpr char kOldProduct[] = "{11111111-1111-1111-1111-111111111111}";
inline constexpr char kOlderProduct[] = "{22222222-2222-2222-2222-222222222222}";

}  // namespace vosk::install
