// A Windows 11 machine as the host report finds it, and the report of it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "report/host_info.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"

namespace vosk::report {

inline const std::filesystem::path kHostInfoFile = "C:/Users/op/hostInfo.txt";
inline const std::string kWindowsKey = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)";
inline const std::string kProcessorKey = R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)";
inline const std::string kVisualStudioKey = R"(SOFTWARE\Microsoft\VisualStudio\)";
inline const std::string kDotNetKey = R"(SOFTWARE\Microsoft\NET Framework Setup\NDP)";

class HostInfoTest : public testing::Test {
 protected:
  void InstallWindows11() {
    support::SimRegistry& registry = host_.registry;
    registry.PutText(kWindowsKey, "ProductName", "Windows 11 Pro");
    registry.PutText(kWindowsKey, "DisplayVersion", "23H2");
    registry.PutText(kWindowsKey, "CurrentVersion", "6.3");
    registry.PutText(kWindowsKey, "CurrentBuildNumber", "22631");
    registry.PutNumber(kWindowsKey, "UBR", 3155);
    InstallSoftware();
  }

  void InstallSoftware() {
    support::SimRegistry& registry = host_.registry;
    registry.PutText(kProcessorKey, "ProcessorNameString", "AMD Ryzen 7 5800X 8-Core Processor");
    const auto put_runtime = [&](const std::string& key, std::uint32_t installed,
                                 const char* version) {
      registry.PutNumber(key, "Installed", installed);
      if (version != nullptr) registry.PutText(key, "Version", version);
    };
    put_runtime(kVisualStudioKey + R"(14.0\VC\Runtimes\x64)", 1, "v14.38.33135.00");
    put_runtime(kVisualStudioKey + R"(10.0\VC\VCRedist\x86)", 1, nullptr);
    put_runtime(kVisualStudioKey + R"(12.0\VC\Runtimes\x64)", 0, "v12.0.40660.00");
    put_runtime(R"(SOFTWARE\WOW6432Node\Microsoft\VisualStudio\14.0\VC\Runtimes\x86)", 1,
                "v14.36.32532.00");
    registry.PutNumber(kDotNetKey + R"(\v3.5)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v2.0.50727)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v3.0)", "Install", 0);
    registry.PutNumber(kDotNetKey + R"(\CDF\v4.0)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v4\Full)", "Install", 1);
    registry.PutNumber(kDotNetKey + R"(\v4\Full)", "Release", 533320);
    InstallLibrary("msvcp140.dll", {14, 38, 33135, 0});
    InstallLibrary("ucrtbase.dll", {10, 0, 22621, 2506});
    for (const char* name : {"user32.dll", "msvcr110.dll"}) {
      host_.PutFile(host_.machine.system_directory / name, "MZ");
    }
  }

  void InstallLibrary(const std::string& name, platform::FileVersion version) {
    const auto path = host_.machine.system_directory / name;
    host_.PutFile(path, "MZ");
    host_.machine.file_versions[path] = version;
  }

  void Fail(const std::string& operation, std::uint32_t code, int first = 1, int count = 1) {
    host_.choke.faults.Add({.scope = operation, .first = first, .count = count, .code = code});
  }

  // The report as it stands in its file.
  std::string Report() {
    HostInfo host_info(host_.Bundle(), log_.Sink(), {vosk_version_, core_version_, modules_});
    EXPECT_TRUE(host_info.GenerateHostInfoFile(kHostInfoFile));
    return host_.ReadFile(kHostInfoFile);
  }

  support::CheckedHost host_;
  support::LogRecorder log_{host_};
  std::string vosk_version_ = "3.3";
  std::string core_version_ = "2.14.3";
  ProcessModules modules_ = {
      {"kernel32.dll", "C:/Windows/System32/kernel32.dll", "10.0.22621.2506"},
      {"msvcp140.dll", "C:/Windows/System32/msvcp140.dll", "14.38.33135.0"}};
};

}  // namespace vosk::report
