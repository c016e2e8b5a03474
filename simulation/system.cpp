#include "simulation/system.h"

#include <fmt/format.h>

#include <fstream>

namespace vosk::simulation {

using platform::Result;

Result<std::filesystem::path> SimSystem::TempPath() {
  return choke_.Perform("system.TempPath", {},
                        [&]() -> Result<std::filesystem::path> { return temp_path; });
}

Result<std::filesystem::path> SimSystem::ModulePath() {
  return choke_.Perform("system.ModulePath", {},
                        [&]() -> Result<std::filesystem::path> { return module_path; });
}

Result<std::filesystem::path> SimSystem::RoamingAppDataPath() {
  using Answer = Result<std::filesystem::path>;
  return choke_.Perform("system.RoamingAppDataPath", {}, [&]() -> Answer { return roaming_path; });
}

Result<std::string> SimSystem::ComputerName() {
  return choke_.Perform("system.ComputerName", {},
                        [&]() -> Result<std::string> { return computer_name; });
}

Result<> SimSystem::InitializeCom() {
  return choke_.Perform("system.InitializeCom", {}, [&]() -> Result<> {
    ++com_initialisations;
    return {};
  });
}

void SimSystem::UninitializeCom() {
  choke_.Note("system.UninitializeCom", {});
  --com_initialisations;
}

Result<> SimSystem::SetControlHandler(platform::ControlHandler handler) {
  return choke_.Perform("system.SetControlHandler", {}, [&]() -> Result<> {
    control_handler_ = std::move(handler);
    return {};
  });
}

void SimSystem::RemoveControlHandler() {
  choke_.Note("system.RemoveControlHandler", {});
  control_handler_ = nullptr;
}

bool SimSystem::Control(platform::ControlEvent event) {
  using platform::ControlEvent;
  const bool answered = control_handler_ && control_handler_(event);
  return answered &&
         (event == ControlEvent::interrupt || event == ControlEvent::interrupt_by_break);
}

void SimSystem::ShowErrorBox(const std::string& title, const std::string& text) {
  choke_.Announce("system.ShowErrorBox", title);
  boxes.push_back({title, text});
}

Result<platform::DumpFileHandle> SimDumpWriter::CreateDumpFile(const std::filesystem::path& path) {
  const auto effect = [&]() -> Result<platform::DumpFileHandle> {
    if (!files_.MayRead(path) || !files_.MayRemove(path)) {
      return tl::unexpected(platform::kSharingViolation);
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
      return tl::unexpected(platform::kAccessDenied);
    }
    if (!std::ofstream(path, std::ios::binary)) return tl::unexpected(platform::ErrorCode{3});
    files_.Hold(path, {});
    open_.emplace(next_handle_, path);
    return platform::DumpFileHandle(next_handle_++, *this);
  };
  return choke_.Perform("dump_writer.CreateDumpFile", path.string(), effect);
}

Result<> SimDumpWriter::WriteDump(const platform::ProcessHandle& process, platform::ProcessId pid,
                                  const platform::DumpFileHandle& file, std::uint32_t dump_type) {
  const std::string subject = fmt::format("{} type {:#x}", pid, dump_type);
  const std::size_t written_before = ledger_.Written().size();
  auto written = choke_.Perform("dump_writer.WriteDump", subject, [&]() -> Result<> {
    const auto target =
        processes_.Reach(process, platform::access::kQueryInformation).and_then([&](SimProcess*) {
          return processes_.Reach(process, platform::access::kReadMemory);
        });
    if (!target) return tl::unexpected(platform::ErrorCode{0x80070005});
    const auto open = open_.find(file.Value());
    if (open == open_.end()) return tl::unexpected(platform::ErrorCode{0x80070006});
    const bool full = (dump_type & platform::kDumpWithFullMemory) != 0;
    std::ofstream(open->second, std::ios::binary)
        << ledger_.Write(open->second, full ? 3 << 20 : 20'000);
    return {};
  });
  // A writer that reports a failure has not promised a dump.
  if (!written && ledger_.Written().size() > written_before) ledger_.DisownLast();
  return written;
}

void SimDumpWriter::CloseHandleValue(platform::HandleValue value) {
  const auto open = open_.find(value);
  if (open == open_.end()) return;
  choke_.Note("dump_writer.Close", open->second.string());
  files_.Release(open->second);
  open_.erase(open);
}

}  // namespace vosk::simulation
