#include "simulation/fault_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace vosk::simulation {
namespace {

using Codes = std::vector<std::uint32_t>;

// The codes with which an operation plausibly fails. An operation that is not listed cannot report
// errors, or its callers need not care.
const std::map<std::string_view, Codes> kPlausibleCodes = {
    {"console.OutputCodePage", {6}},
    {"console.SetOutputCodePage", {87}},
    {"console.Mode", {6}},
    {"console.SetMode", {6, 87}},
    {"console.Info", {6}},
    {"console.SetTextAttributes", {6}},
    {"console.SetCursor", {6, 87}},
    {"console.SetCursorVisible", {6}},
    {"dump_writer.CreateDumpFile", {5, 112}},
    {"dump_writer.WriteDump", {0x80070070, 5}},
    {"files.Exists", {5}},
    {"files.CurrentDirectory", {3}},
    {"files.FreeSpace", {5}},
    {"files.IsLink", {5}},
    {"files.LastWriteTime", {5}},
    {"files.TypeOf", {5}},
    {"files.SizeOf", {5}},
    {"files.Remove", {32, 5}},
    {"files.Rename", {32, 112}},
    {"files.RenameAtNextBoot", {5}},
    {"files.Replace", {5, 32}},
    {"files.Flush", {5, 1117}},
    {"files.CheckRename", {32, 5}},
    {"files.Copy", {5, 112}},
    {"files.CreateDirectories", {5, 112}},
    {"files.Walk", {5}},
    {"files.Walk.Next", {1392}},
    {"files.OpenForReading", {32, 5}},
    {"files.OpenForAppending", {13, 24}},  // numbers of the C library
    {"files.OpenTextForWriting", {13, 24}},
    {"files.OpenForWriting", {13, 28}},  // here too
    {"installer.OpenDatabase", {110, 1620}},
    {"installer.OpenView", {1615}},
    {"installer.Execute", {1627}},
    {"installer.Fetch", {259, 6}},
    {"installer.FieldText", {6}},
    {"installer.RelatedProduct", {1610, 8}},
    {"machine.Memory", {31}},
    {"network.Download", {0}},
    {"network.FetchVersion", {0}},
    {"network.Upload", {0}},
    {"machine.OpenGraphics", {0x887A0004}},
    {"machine.Graphics.At", {0x887A0005}},
    {"machine.Graphics.Describe", {0x887A0005}},
    {"machine.Graphics.TryFeatureLevels", {0x887A0004, 0x80070057}},
    {"machine.OpenNetwork", {10091}},
    {"machine.Network.Adapters", {232, 111}},
    {"machine.SystemDirectory", {2}},
    {"machine.VersionOf", {5, 1812}},
    {"machine.OperatingSystem", {127}},
    {"machine.ProductCode", {127}},
    {"processes.Open", {5, 87}},
    {"processes.Start", {5, 8}},
    {"processes.StartElevated", {1223, 2}},
    {"processes.ExitCode", {6}},
    {"processes.Id", {5}},
    {"processes.StartTime", {5}},
    {"processes.Terminate", {5, 6}},
    {"processes.WaitFor", {6}},
    {"processes.TakeSnapshot", {8}},
    {"processes.Snapshot.First", {8, 18}},
    {"processes.Snapshot.Next", {8}},
    {"processes.Modules", {299, 5}},
    {"processes.ModulePath", {6}},
    {"processes.RunShellCommand", {1}},  // an exit status
    {"processes.OpenOwnToken", {5}},
    {"processes.LookUpPrivilege", {1313}},
    {"processes.EnablePrivilege", {1300, 6}},
    {"registry.Open", {5}},
    {"registry.CreateOrOpen", {5}},
    {"registry.Query", {5, 234}},
    {"registry.SubKeyName", {5}},
    {"registry.SetValue", {5}},
    {"registry.RemoveValue", {5}},
    {"system.TempPath", {203}},
    {"system.ModulePath", {122}},
    {"system.RoamingAppDataPath", {0x80070002}},
    {"system.ComputerName", {111}},
    {"system.SetControlHandler", {8}},
    {"system.InitializeCom", {0x8007000E, 0x80010106}},
};

// For all other operations, failing after the effect is the same as failing.
bool LeavesAnEffect(std::string_view operation) {
  static constexpr std::string_view kLasting[] = {
      "console.SetOutputCodePage",
      "console.SetMode",
      "console.SetTextAttributes",
      "console.SetCursor",
      "console.SetCursorVisible",
      "dump_writer.CreateDumpFile",
      "dump_writer.WriteDump",
      "files.Copy",
      "files.Remove",
      "files.Rename",
      "files.Replace",
      "files.CreateDirectories",
      "processes.Start",
      "processes.StartElevated",
      "processes.Terminate",
      "processes.WaitFor",
      "processes.RunShellCommand",
      "processes.EnablePrivilege",
      "registry.CreateOrOpen",
      "registry.SetValue",
      "registry.RemoveValue",
  };
  return std::ranges::find(kLasting, operation) != std::end(kLasting);
}

bool ChangesTheMachine(std::string_view operation) {
  // Besides operations with an effect: archives grow while their sources are read.
  static constexpr std::string_view kOthers[] = {
      "clock.SleepFor",           "files.OpenForAppending", "files.OpenForReading",
      "files.OpenTextForWriting", "files.OpenForWriting",   "system.ShowErrorBox",
  };
  return (LeavesAnEffect(operation) && !operation.starts_with("console.")) ||
         operation.starts_with("network.") ||
         std::ranges::find(kOthers, operation) != std::end(kOthers);
}

bool InScope(const FaultRule& rule, std::string_view operation) {
  if (rule.scope.empty() || rule.scope == operation) return true;
  return operation.starts_with(rule.scope) && operation[rule.scope.size()] == '.';
}

// Returns the code with which the rule can hit the operation, or nothing if it cannot.
std::optional<std::uint32_t> CodeFor(const FaultRule& rule, std::string_view operation) {
  if (!InScope(rule, operation)) return std::nullopt;
  if (EndsVosk(rule.kind)) {
    return ChangesTheMachine(operation) ? std::optional(0u) : std::nullopt;
  }
  if (rule.kind == FaultKind::broken_stream) {
    return operation == "files.OpenForReading" ? std::optional(0u) : std::nullopt;
  }
  if (rule.kind == FaultKind::fails_after_effect && !LeavesAnEffect(operation)) return std::nullopt;
  const auto codes = kPlausibleCodes.find(operation);
  if (codes == kPlausibleCodes.end()) return std::nullopt;
  if (rule.code) return rule.code;
  if (rule.alternative >= codes->second.size()) return std::nullopt;
  return codes->second[rule.alternative];
}

}  // namespace

std::optional<Fault> FaultPlan::Ask(std::string_view operation, const std::string& subject) {
  std::optional<Fault> fault;
  for (auto& [rule, hits] : rules_) {
    const auto code = CodeFor(rule, operation);
    if (!code) continue;
    ++hits;
    if (rule.count == 0) listed_.push_back({std::string(operation), subject, {rule.kind, *code}});
    if (hits < rule.first || hits >= rule.first + rule.count || fault) continue;
    fault = Fault{rule.kind, *code};
    fired_.push_back({std::string(operation), subject, *fault});
  }
  return fault;
}

bool TellsInWords(std::string_view operation) {
  constexpr std::array kNumberAlone{"files.OpenForAppending", "files.OpenTextForWriting",
                                    "files.OpenForWriting", "files.FreeSpace",
                                    "files.CurrentDirectory"};
  return operation.starts_with("files.") &&
         std::ranges::find(kNumberAlone, operation) == kNumberAlone.end();
}

std::string ErrorText(std::uint32_t code) {
  static const std::map<std::uint32_t, std::string_view> kTexts = {
      {2, "The system cannot find the file specified."},
      {3, "The system cannot find the path specified."},
      {5, "Access is denied."},
      {32, "The process cannot access the file because it is being used by another process."},
      {80, "The file exists."},
      {112, "There is not enough space on the disk."},
      {145, "The directory is not empty."},
      {183, "Cannot create a file when that file already exists."},
      {267, "The directory name is invalid."},
      {1392, "The file or directory is corrupted and unreadable."},
  };
  const auto text = kTexts.find(code);
  return text != kTexts.end() ? std::string(text->second) : fmt::format("System error {}.", code);
}

}  // namespace vosk::simulation
