#include "hostsettings/crash_dialogs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"

namespace vosk::hostsettings {
namespace {

using platform::RegistryValue;
using support::CheckedHost;
using support::LogRecorder;
using support::LogText;
using support::NumberValue;
using support::SimRegistry;
using support::SimulatedHost;
using support::TextValue;

const std::string kWer = R"(SOFTWARE\Microsoft\Windows\Windows Error Reporting)";
const std::string kWer32 = R"(SOFTWARE\WOW6432Node\Microsoft\Windows\Windows Error Reporting)";
const std::string kJit = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion\AeDebug)";
const std::string kJit32 = R"(SOFTWARE\WOW6432Node\Microsoft\Windows NT\CurrentVersion\AeDebug)";

// How the native key is found, while the other one is right; and which of its calls fail.
struct Row {
  std::string what;
  std::function<void(SimRegistry&)> prepare;
  std::string failing;
  int times;
  std::string log;  // on the native key
  bool success;
  std::string stored = "4: 01 00 00 00";  // afterwards, under the native key
};

std::size_t Writes(const SimulatedHost& host) {
  return std::ranges::count_if(host.choke.Trace(), [](const std::string& call) {
    return call.starts_with("registry.CreateOrOpen") || call.starts_with("registry.SetValue") ||
           call.starts_with("registry.RemoveValue");
  });
}

// Whether the call was made without asking for the 64-bit view.
bool CalledPlainly(const SimulatedHost& host, const std::string& call) {
  return std::ranges::count(host.choke.Trace(), call) > 0;
}

std::string Joined(const LogText& lines) {
  return fmt::format("{}", fmt::join(lines, "\n"));
}

std::string Stored(const std::optional<RegistryValue>& value) {
  if (!value) return "none";
  return fmt::format("{}: {:02x}", value->type, fmt::join(value->data, " "));
}

TEST(SuppressWerDialog, FromEveryState) {
  const auto put = [](RegistryValue value) {
    return [value](SimRegistry& registry) { registry.PutValue(kWer, "DontShowUI", value); };
  };
  const auto put_key = [](SimRegistry& registry) { registry.PutKey(kWer); };
  const std::string right = "[INFO]   'DontShowUI' value already set correctly (1).";
  const std::string set = "[INFO]   Successfully set existing 'DontShowUI' value to 1.";
  const std::string not_found =
      "[INFO]   'DontShowUI' value not found. Attempting to create/set it.";
  const std::string overwrite = "[WARN]   'DontShowUI' value exists but has unexpected type (";
  const Row rows[] = {
      {"right", put(NumberValue(1)), "", 0, right, true},
      {"other data", put(NumberValue(0x8000'0002)), "", 0,
       "[INFO]   'DontShowUI' value found with different data (2147483650). Attempting to "
       "change.\n" +
           set,
       true},
      {"text", put(TextValue("1")), "", 0,
       overwrite + "1) or size (4). Attempting to overwrite.\n" + set, true},
      {"wrong size", put({platform::kRegistryDword, {1, 0, 0}}), "", 0,
       overwrite + "4) or size (3). Attempting to overwrite.\n" + set, true},
      {"no value", put_key, "", 0, not_found + "\n" + set, true},
      {"no key", [](SimRegistry&) {}, "", 0,
       "[INFO]   Registry key does not exist. Attempting to create it.\n[INFO]   Successfully "
       "created key and set 'DontShowUI' to 1.",
       true},
      {"no 64-bit view", put(NumberValue(1)), "registry.Open", 1, right, true},
      {"cannot be opened", put(NumberValue(1)), "registry.Open", 2,
       "[ERROR]   Failed to open key for reading. Error: 5. Cannot check current value.\n" + set,
       true},
      {"cannot be read", put(NumberValue(1)), "registry.Query", 1,
       "[ERROR]   Failed to query existing 'DontShowUI' value. Error: 5\n" + set, true},
      {"no 64-bit view to write", put_key, "registry.CreateOrOpen", 1, not_found + "\n" + set,
       true},
      {"cannot be created", put_key, "registry.CreateOrOpen", 2,
       not_found + "\n[ERROR]   Failed to create/open key with write access. Error: 5. Cannot set "
                   "WER value.",
       false, "none"},
      {"cannot be set", put_key, "registry.SetValue", 1,
       not_found +
           "\n[ERROR]   Failed to set 'DontShowUI' value. Error: 5. WER dialogs may still appear.",
       false, "none"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    LogRecorder log(host);
    row.prepare(host.registry);
    host.registry.PutNumber(kWer32, "DontShowUI", 1);
    if (!row.failing.empty()) host.FailNext(row.failing, 5, row.times);
    CrashDialogs(host.registry, log.Sink()).SuppressWerDialog();
    const LogText wanted = {
        "[INFO] Attempting to disable Windows Error Reporting (WER) crash dialog UI...",
        "[INFO] Checking WER settings in: HKLM\\" + kWer,
        row.log,
        "[INFO] Checking WER settings in: HKLM\\" + kWer32,
        right,
        row.success
            ? "[INFO] WER Dialog settings checked/updated successfully."
            : "[ERROR] Failed to fully configure WER dialog settings. Check previous errors."};
    EXPECT_EQ(Joined(log.Lines()), Joined(wanted));
    EXPECT_EQ(CalledPlainly(host, "registry.Open " + kWer + " 0x20019"),
              row.failing == "registry.Open" || row.what == "no key");
    EXPECT_EQ(CalledPlainly(host, "registry.CreateOrOpen " + kWer + " 0x20006"),
              row.failing == "registry.CreateOrOpen");
    EXPECT_EQ(Writes(host) == 0, row.log == right) << "what is right is not written";
    EXPECT_EQ(Stored(host.registry.ValueAt(kWer, "DontShowUI")), row.stored);
  }
}

TEST(DisableJitDebugger, FromEveryState) {
  const auto configured = [](SimRegistry& registry) {
    registry.PutText(kJit, "Debugger", "vs");
    registry.PutText(kJit, "Auto", "1");
  };
  const auto put_key = [](SimRegistry& registry) { registry.PutKey(kJit); };
  const auto nothing = [](SimRegistry&) {};
  const std::string deleted = "[INFO]   Successfully deleted JIT 'Debugger' value.";
  const std::string set = "[INFO]   Successfully set JIT 'Auto' value to \"0\".";
  const std::string missing =
      "[INFO]   Registry key does not exist (JIT debugging not configured here).";
  const std::string off = "none | 1: 30 00 00 00";
  const std::string found = "1: 76 00 73 00 00 00 | 1: 31 00 00 00";
  const Row rows[] = {
      {"configured", configured, "", 0, deleted + "\n" + set, true, off},
      {"no values", put_key, "", 0,
       "[INFO]   JIT 'Debugger' value not found (already effectively disabled).\n" + set, true,
       off},
      {"no key", nothing, "", 0, missing, true, "none | none"},
      {"no 64-bit view", configured, "registry.Open", 1, deleted + "\n" + set, true, off},
      {"cannot be opened", configured, "registry.Open", 2,
       "[ERROR]   Failed to open registry key. Error: 5. Cannot modify JIT settings for this key "
       "path.",
       false, found},
      {"cannot be deleted", configured, "registry.RemoveValue", 1,
       "[ERROR]   Failed to delete JIT 'Debugger' value. Error: 5\n" + set, false,
       found.substr(0, found.find('|')) + "| 1: 30 00 00 00"},
      {"cannot be set", configured, "registry.SetValue", 1,
       deleted + "\n[WARN]   Failed to set JIT 'Auto' value to \"0\". Error: 5", false,
       "none | 1: 31 00 00 00"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CheckedHost host;
    LogRecorder log(host);
    row.prepare(host.registry);
    if (!row.failing.empty()) host.FailNext(row.failing, 5, row.times);
    CrashDialogs(host.registry, log.Sink()).DisableJitDebugger();
    const LogText wanted = {
        "[INFO] Attempting to disable system Just-In-Time (JIT) Debugger settings...",
        "[INFO] Checking JIT settings in: HKLM\\" + kJit,
        row.log,
        "[INFO] Checking JIT settings in: HKLM\\" + kJit32,
        missing,
        row.success ? "[INFO] JIT Debugger settings checked/updated successfully."
                    : "[ERROR] Failed to fully configure JIT Debugger settings. Check previous "
                      "errors. JIT prompts may still appear."};
    EXPECT_EQ(Joined(log.Lines()), Joined(wanted));
    EXPECT_EQ(CalledPlainly(host, "registry.Open " + kJit + " 0x2001f"),
              row.failing == "registry.Open" || row.what == "no key");
    EXPECT_EQ(Stored(host.registry.ValueAt(kJit, "Debugger")) + " | " +
                  Stored(host.registry.ValueAt(kJit, "Auto")),
              row.stored);
    EXPECT_FALSE(host.registry.HasKey(kJit32)) << "a missing key stays missing";
    EXPECT_EQ(host.registry.HasKey(kJit), row.log != missing);
  }
}

}  // namespace
}  // namespace vosk::hostsettings
