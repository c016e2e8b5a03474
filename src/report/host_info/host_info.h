// The host information report: a text file that describes the machine on which a crash happened.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>

#include "console/log.h"
#include "platform/host.h"
#include "platform/types.h"
#include "report/host_info/process_module.h"

namespace vosk::report {

// What the report says about the two programs; the references outlive the reports.
struct ReportedPrograms {
  std::string vosk_version;            // empty: unknown
  const std::string& core_version;     // empty or "0.0.0": unknown
  const ProcessModules& core_modules;  // guarded by the console lock
};

class HostInfo {
 public:
  HostInfo(const platform::Host& host, console::LogSink& log, ReportedPrograms programs);

  // Writes the report, over an existing file. If something cannot be found out, the report says so
  // in its place. Returns false only if the file cannot be opened.
  [[nodiscard]] bool GenerateHostInfoFile(const std::filesystem::path& path);

  // Writes the lines on the graphics adapters.
  void EnumerateGPUs(std::ostream& stream);

  // Returns the modules of a live process that belong to the C++ runtime or the base of the system,
  // sorted by name; none if they cannot be listed, which is logged.
  [[nodiscard]] ProcessModules CaptureProcessModules(const platform::ProcessHandle& process);

 private:
  void WriteReport(std::ostream& stream);

  platform::Host host_;
  console::LogSink& log_;
  ReportedPrograms programs_;
};

}  // namespace vosk::report
