#include "install/msi_package.h"

#include <gtest/gtest.h>

#include "tests/install/install_scene.h"

namespace vosk::install {
namespace {

using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogRecorder;
using support::SimulatedHost;

TEST(MsiPackage, TakesTheMsiOutOfItsZip) {
  CheckedHost host;
  LogRecorder log(host);
  MsiPackage package(host.files, host.installer, log.Sink());
  host.PutFile("C:/package.zip",
               support::ZipBytes({{"readme.txt", "no"}, {"VELDRAN Core Installer.msi", "new"}}));
  host.PutFile("C:/work/VELDRAN Core Installer.msi", "an older and longer one");
  EXPECT_TRUE(package.ExtractMsi("C:/package.zip", "C:/work"));
  EXPECT_EQ(SimulatedHost::ReadFile("C:/work/VELDRAN Core Installer.msi"), "new");
  EXPECT_THAT(log.Lines(),
              LogIs({"[INFO] Installer: Attempting to extract MSI from: C:/package.zip",
                     "[INFO] Installer: Found [VELDRAN Core Installer.msi] at index 1",
                     "[INFO] Installer: Successfully extracted VELDRAN Core Installer.msi to "
                     "C:/work/VELDRAN Core Installer.msi"}));
}

TEST(MsiPackage, TellsWhyThereIsNoMsi) {
  struct Row {
    std::string zip;
    std::string failing;
    std::string line;
  };
  const std::string good = support::ZipBytes({{"VELDRAN Core Installer.msi", "new"}});
  const Row rows[] = {
      {"<html>", "",
       "[ERROR] Installer: Failed init zip reader for C:/package.zip. Error: not a ZIP archive"},
      {good.substr(0, good.size() - 30), "",
       "[ERROR] Installer: Failed init zip reader for C:/package.zip. Error: failed finding "
       "central directory"},
      {support::ZipBytes({{"sub/VELDRAN Core Installer.msi", "new"}}), "",
       "[ERROR] Installer: Could not find 'VELDRAN Core Installer.msi' in C:/package.zip"},
      {good, "files.CreateDirectories",
       "[ERROR] Installer: Failed to create extraction directory 'C:/work': Access is denied."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    CheckedHost host;
    LogRecorder log(host);
    MsiPackage package(host.files, host.installer, log.Sink());
    host.PutFile("C:/package.zip", row.zip);
    if (!row.failing.empty()) host.FailNext(row.failing, 5);
    EXPECT_FALSE(package.ExtractMsi("C:/package.zip", "C:/work"));
    EXPECT_THAT(log.Lines(), LogHas({row.line}));
    EXPECT_FALSE(std::filesystem::exists("C:/work/VELDRAN Core Installer.msi"));
  }
}

TEST(MsiPackage, ReadsTheVersionOrTellsWhyNot) {
  struct Row {
    std::string failing;
    std::string version;
    std::string line;
  };
  const Row rows[] = {
      {"", "1.2.3", "[INFO] GetMsiProductVersion: MSI ProductVersion = 1.2.3"},
      {"", "", "[ERROR] GetMsiProductVersion: No ProductVersion property found. Error: 259"},
      {"installer.OpenDatabase", "1.2.3",
       "[ERROR] GetMsiProductVersion: Failed to open MSI database 'C:/core.msi'. Error: 110"},
      {"installer.OpenView", "1.2.3",
       "[ERROR] GetMsiProductVersion: Failed to open view. Error: 110"},
      {"installer.Execute", "1.2.3",
       "[ERROR] GetMsiProductVersion: Failed to execute view. Error: 110"},
      {"installer.Fetch", "1.2.3",
       "[ERROR] GetMsiProductVersion: No ProductVersion property found. Error: 110"},
      {"installer.FieldText", "1.2.3",
       "[ERROR] GetMsiProductVersion: Failed to read ProductVersion. Error: 110"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.failing);
    CheckedHost host;
    LogRecorder log(host);
    MsiPackage package(host.files, host.installer, log.Sink());
    host.PutFile("C:/core.msi", host.installer.MakePackage({.version = row.version}));
    if (!row.failing.empty()) host.FailNext(row.failing, 110);
    EXPECT_EQ(package.GetMsiProductVersion("C:/core.msi"), row.failing.empty() ? row.version : "");
    EXPECT_THAT(log.Lines(), LogIs({row.line}));
    EXPECT_EQ(host.installer.OpenHandles(), 0u);
  }
}

}  // namespace
}  // namespace vosk::install
