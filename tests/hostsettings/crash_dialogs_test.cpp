#include "hostsettings/crash_dialogs.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/support/checked_host.h"
#include "tests/support/transcript.h"
#include "tests/support/variants.h"

namespace vosk::hostsettings {
namespace {

using support::SimulatedHost;

const std::string kWer = R"(SOFTWARE\Microsoft\Windows\Windows Error Reporting)";
const std::string kWer32 = R"(SOFTWARE\WOW6432Node\Microsoft\Windows\Windows Error Reporting)";
const std::string kJit = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion\AeDebug)";
const std::string kJit32 = R"(SOFTWARE\WOW6432Node\Microsoft\Windows NT\CurrentVersion\AeDebug)";

// Makes one key of each kind as wanted and one not.
void Arrange(SimulatedHost& host) {
  host.registry.PutKey(kWer);
  host.registry.PutNumber(kWer32, "DontShowUI", 1);
  host.registry.PutText(kJit, "Debugger", "vs");
  host.registry.PutText(kJit, "Auto", "1");
}

// Returns what is in the registry afterwards, and which keys were opened for writing.
std::string Act(SimulatedHost& host, console::LogSink& log) {
  CrashDialogs dialogs(host.registry, log);
  dialogs.SuppressWerDialog();
  dialogs.DisableJitDebugger();
  std::string end;
  for (const auto& [key, name] : {std::pair(kWer, "DontShowUI"),
                                  {kWer32, "DontShowUI"},
                                  {kJit, "Debugger"},
                                  {kJit, "Auto"},
                                  {kJit32, "Auto"}}) {
    const auto value = host.registry.ValueAt(key, name);
    end += fmt::format("{} {}: {}\n", key, name, host.registry.HasKey(key) ? "none" : "no key");
    if (!value) continue;
    end.replace(end.rfind("none"), 4, fmt::format("{:02x}", fmt::join(value->data, " ")));
    end.insert(end.size() - 1, fmt::format(", type {}", value->type));
  }
  for (const std::string& call : host.choke.Trace()) {
    if (call.starts_with("registry.CreateOrOpen")) end += call + '\n';
  }
  return end;
}

TEST(CrashDialogs, GoOnPastEveryFault) {
  support::ExpectFaultTranscript("hostsettings/crash_dialogs_faults.txt",
                                 {.arrange = Arrange, .act = Act});
}

TEST(CrashDialogs, FromEveryState) {
  const auto put = [](const platform::RegistryValue& value) {
    return [value](SimulatedHost& host) { host.registry.PutValue(kWer, "DontShowUI", value); };
  };
  const auto none_of = [](const std::string& operation, int first) {
    return [operation, first](SimulatedHost& host) {
      host.choke.faults.Add({.scope = operation, .first = first, .count = 2, .code = 5});
    };
  };
  const std::pair<std::string, std::function<void(SimulatedHost&)>> rows[] = {
      {"no value", [](SimulatedHost&) {}},
      {"right", put(support::NumberValue(1))},
      {"other data", put(support::NumberValue(0x8000'0002))},
      {"text", put(support::TextValue("1"))},
      {"wrong size", put({platform::kRegistryDword, {1, 0, 0}})},
      {"neither view can be opened", none_of("registry.Open", 1)},
      {"neither view can be created", none_of("registry.CreateOrOpen", 1)},
      {"neither view of the debugger can be opened", none_of("registry.Open", 3)},
  };
  support::Variants variants;
  for (const auto& [name, change] : rows) {
    support::CheckedHost host;
    Arrange(host);
    change(host);
    support::LogRecorder log(host);
    const std::string end = Act(host, log.Sink());
    variants.Add(name, log.Lines(), end);
  }
  support::CheckedHost bare;
  bare.registry.PutKey(kJit);
  support::LogRecorder log(bare);
  const std::string end = Act(bare, log.Sink());
  variants.Add("no keys but the debugger's", log.Lines(), end);
  variants.Expect("hostsettings/crash_dialogs_states.txt");
}

}  // namespace
}  // namespace vosk::hostsettings
