// Switches off, for the whole machine, the dialogs that would keep a crashed process waiting for an
// answer. Nothing is put back.
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

  // Deletes the just-in-time "Debugger" and sets its "Auto" to "0" if there is such a key.
  void DisableJitDebugger();

 private:
  // The same for one key path; these return true if the settings are as wanted at the end.
  bool SuppressWerDialogIn(const std::string& key_path);
  bool DisableJitDebuggerIn(const std::string& key_path);

  // Returns whether the value is already as wanted; logs what it found.
  [[nodiscard]] bool DontShowUiIsSet(const std::string& key_path);
  bool SetDontShowUi(const std::string& key_path);
  bool DeleteDebugger(const platform::RegistryKey& key);
  bool SetAuto(const platform::RegistryKey& key);
  // Opens the key in the 64-bit view, or else in whatever view there is.
  platform::Result<platform::RegistryKey> Open(const std::string& key_path, std::uint32_t access);

  platform::Registry& registry_;
  console::LogSink& log_;
};

}  // namespace vosk::hostsettings
