#include "install/core_package.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/install/install_scene.h"
#include "tests/support/transcript.h"

namespace vosk::install {
namespace {

using support::SimulatedHost;
using support::ZipBytes;

// Makes a package whose MSI is not the first member, and an older MSI in the new one's place.
void Arrange(SimulatedHost& host) {
  const std::string msi = host.installer.MakePackage({.version = "1.2.3"});
  host.PutFile("C:/package.zip", ZipBytes({{"readme.txt", "no"}, {std::string(kMsiName), msi}}));
  host.PutFile("C:/work/VELDRAN Core Installer.msi", "an older and far longer one" + msi);
}

std::string Act(SimulatedHost& host, console::LogSink& log) {
  PreparedDownload download(host);
  CorePackage package(host.files, host.installer, log, download);
  const bool extracted = package.ExtractMsi("C:/package.zip", "C:/work");
  const std::filesystem::path msi = std::filesystem::path("C:/work") / kMsiName;
  const std::string version = package.GetMsiProductVersion(msi);
  return fmt::format("{} '{}', there is an MSI: {}", extracted, version,
                     std::filesystem::exists(msi));
}

TEST(CorePackage, TellsOfEveryFault) {
  support::ExpectFaultTranscript("install/core_package_faults.txt",
                                 {.arrange = Arrange, .act = Act});
}

TEST(CorePackage, TellsOfEveryOddPackage) {
  support::CheckedHost host;
  support::LogRecorder log(host);
  Arrange(host);
  const std::string good = SimulatedHost::ReadFile("C:/package.zip");
  std::string ends;
  for (const std::string& zip :
       {std::string("<html>"), good.substr(0, good.size() - 30),
        ZipBytes({{"sub/" + std::string(kMsiName), "no"}}), PackageZip(host, {})}) {
    host.PutFile("C:/package.zip", zip);
    ends += Act(host, log.Sink()) + '\n';
  }
  support::Variants packages;
  packages.Add("a page, a cut one, an MSI in a folder, an MSI without a version", log.Lines(),
               ends);
  packages.Expect("install/core_package_oddities.txt");
}

}  // namespace
}  // namespace vosk::install
