#include "hostsettings/crash_dialogs.h"

#include <fmt/format.h>

namespace vosk::hostsettings {
namespace {

using platform::kFileNotFound;
using platform::RegistryKey;
using platform::RegistryValue;
using platform::Result;
namespace access = platform::registry_access;

const std::string kWerKey = R"(SOFTWARE\Microsoft\Windows\Windows Error Reporting)";
const std::string kWerKeyOf32Bit =
    R"(SOFTWARE\WOW6432Node\Microsoft\Windows\Windows Error Reporting)";
const std::string kJitKey = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion\AeDebug)";
const std::string kJitKeyOf32Bit =
    R"(SOFTWARE\WOW6432Node\Microsoft\Windows NT\CurrentVersion\AeDebug)";

const std::string kDontShowUi = "DontShowUI";
const std::string kDebugger = "Debugger";
const std::string kAuto = "Auto";
const RegistryValue kOne{platform::kRegistryDword, {1, 0, 0, 0}};
const RegistryValue kTextZero{platform::kRegistryString, {'0', 0, 0, 0}};

std::uint32_t NumberIn(const RegistryValue& value) {
  std::uint32_t number = 0;
  for (std::size_t at = value.data.size(); at-- > 0;) number = number << 8 | value.data[at];
  return number;
}

}  // namespace

CrashDialogs::CrashDialogs(platform::Registry& registry, console::LogSink& log)
    : registry_(registry), log_(log) {}

Result<RegistryKey> CrashDialogs::Open(const std::string& key_path, std::uint32_t rights) {
  if (auto key = registry_.Open(key_path, rights | access::kView64)) return key;
  return registry_.Open(key_path, rights);
}

void CrashDialogs::SuppressWerDialog() {
  log_.LogInfo("Attempting to disable Windows Error Reporting (WER) crash dialog UI...");
  const bool native = SuppressWerDialogIn(kWerKey);
  const bool of_32_bit = SuppressWerDialogIn(kWerKeyOf32Bit);
  if (native && of_32_bit) {
    log_.LogInfo("WER Dialog settings checked/updated successfully.");
  } else {
    log_.LogError("Failed to fully configure WER dialog settings. Check previous errors.");
  }
}

bool CrashDialogs::SuppressWerDialogIn(const std::string& key_path) {
  log_.LogInfo("Checking WER settings in: HKLM\\{}", key_path);
  return DontShowUiIsSet(key_path) || SetDontShowUi(key_path);
}

bool CrashDialogs::DontShowUiIsSet(const std::string& key_path) {
  const auto key = Open(key_path, access::kRead);
  if (!key && key.error() == kFileNotFound) {
    log_.LogInfo("  Registry key does not exist. Attempting to create it.");
    return false;
  }
  if (!key) {
    log_.LogError("  Failed to open key for reading. Error: {}. Cannot check current value.",
                  key.error());
    return false;
  }
  const auto value = registry_.Query(*key, kDontShowUi);
  if (!value && value.error() == kFileNotFound) {
    log_.LogInfo("  '{}' value not found. Attempting to create/set it.", kDontShowUi);
    return false;
  }
  if (!value) {
    log_.LogError("  Failed to query existing '{}' value. Error: {}", kDontShowUi, value.error());
    return false;
  }
  if (value->type != kOne.type || value->data.size() != kOne.data.size()) {
    log_.LogWarn(
        "  '{}' value exists but has unexpected type ({}) or size ({}). Attempting to "
        "overwrite.",
        kDontShowUi, value->type, value->data.size());
    return false;
  }
  if (value->data != kOne.data) {
    log_.LogInfo("  '{}' value found with different data ({}). Attempting to change.", kDontShowUi,
                 NumberIn(*value));
    return false;
  }
  log_.LogInfo("  '{}' value already set correctly (1).", kDontShowUi);
  return true;
}

bool CrashDialogs::SetDontShowUi(const std::string& key_path) {
  auto created = registry_.CreateOrOpen(key_path, access::kWrite | access::kView64);
  if (!created) created = registry_.CreateOrOpen(key_path, access::kWrite);
  if (!created) {
    log_.LogError("  Failed to create/open key with write access. Error: {}. Cannot set WER value.",
                  created.error());
    return false;
  }
  if (const auto set = registry_.SetValue(created->key, kDontShowUi, kOne); !set) {
    log_.LogError("  Failed to set '{}' value. Error: {}. WER dialogs may still appear.",
                  kDontShowUi, set.error());
    return false;
  }
  log_.LogInfo(created->newly_created
                   ? fmt::format("  Successfully created key and set '{}' to 1.", kDontShowUi)
                   : fmt::format("  Successfully set existing '{}' value to 1.", kDontShowUi));
  return true;
}

void CrashDialogs::DisableJitDebugger() {
  log_.LogInfo("Attempting to disable system Just-In-Time (JIT) Debugger settings...");
  const bool native = DisableJitDebuggerIn(kJitKey);
  const bool of_32_bit = DisableJitDebuggerIn(kJitKeyOf32Bit);
  if (native && of_32_bit) {
    log_.LogInfo("JIT Debugger settings checked/updated successfully.");
  } else {
    log_.LogError(
        "Failed to fully configure JIT Debugger settings. Check previous errors. JIT prompts may "
        "still appear.");
  }
}

bool CrashDialogs::DisableJitDebuggerIn(const std::string& key_path) {
  log_.LogInfo("Checking JIT settings in: HKLM\\{}", key_path);
  const auto key = Open(key_path, access::kRead | access::kWrite);
  if (!key && key.error() == kFileNotFound) {
    log_.LogInfo("  Registry key does not exist (JIT debugging not configured here).");
    return true;
  }
  if (!key) {
    log_.LogError(
        "  Failed to open registry key. Error: {}. Cannot modify JIT settings for this "
        "key path.",
        key.error());
    return false;
  }
  const bool deleted = DeleteDebugger(*key);
  const bool set = SetAuto(*key);
  return deleted && set;
}

bool CrashDialogs::DeleteDebugger(const RegistryKey& key) {
  const auto deleted = registry_.RemoveValue(key, kDebugger);
  if (!deleted && deleted.error() != kFileNotFound) {
    log_.LogError("  Failed to delete JIT '{}' value. Error: {}", kDebugger, deleted.error());
    return false;
  }
  log_.LogInfo(deleted ? fmt::format("  Successfully deleted JIT '{}' value.", kDebugger)
                       : fmt::format("  JIT '{}' value not found (already effectively disabled).",
                                     kDebugger));
  return true;
}

bool CrashDialogs::SetAuto(const RegistryKey& key) {
  if (const auto set = registry_.SetValue(key, kAuto, kTextZero); !set) {
    log_.LogWarn("  Failed to set JIT '{}' value to \"0\". Error: {}", kAuto, set.error());
    return false;
  }
  log_.LogInfo("  Successfully set JIT '{}' value to \"0\".", kAuto);
  return true;
}

}  // namespace vosk::hostsettings
