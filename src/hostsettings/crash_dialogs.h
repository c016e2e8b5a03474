// What would keep a crashed process on the screen until somebody answers, switched off for the
// whole machine. Nothing is put back.
#pragma once

#include <string>

#include "console/log.h"
#include "platform/registry.h"

namespace vosk::hostsettings {

// Each setting has a key in the native view of the registry and one in that of 32-bit programs.
// Failures are logged and change nothing else.
class CrashDialogs {
 public:
  CrashDialogs(platform::Registry& registry, console::LogSink& log);

  // Sets "DontShowUI" of Windows Error Reporting to 1, creating what is missing.
  void SuppressWerDialog();

  // Deletes the just-in-time "Debugger" and sets its "Auto" to "0" where there is such a key.
  void DisableJitDebugger();

 private:
  // For one key path: true when it is as wanted.
  bool SuppressWerDialogIn(const std::string& key_path);
  bool DisableJitDebuggerIn(const std::string& key_path);

  // Whether the value is as wanted already; logs what it found.
  [[nodiscard]] bool DontShowUiIsSet(const std::string& key_path);
  bool SetDontShowUi(const std::string& key_path);
  bool DeleteDebugger(const platform::RegistryKey& key);
  bool SetAuto(const platform::RegistryKey& key);
  // In the 64-bit view, or else in whatever view there is.
  platform::Result<platform::RegistryKey> Open(const std::string& key_path, std::uint32_t access);

  platform::Registry& registry_;
  console::LogSink& log_;
};

}  // namespace vosk::hostsettings
