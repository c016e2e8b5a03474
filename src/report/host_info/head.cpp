#include "report/host_info/head.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ostream.h>

namespace vosk::report {

void WriteTimes(const SectionContext& context, std::time_t now, const std::tm& local_time) {
  try {
    fmt::print(context.out, "Report Generated (UTC): {:%Y-%m-%d %H:%M:%S UTC}\n", fmt::gmtime(now));
  } catch (const std::exception& problem) {
    context.log.LogError("Failed to convert the current time: {}", problem.what());
    fmt::print(context.out, "Report Generated (UTC): <Error converting time: {}>\n",
               problem.what());
  }
  fmt::print(context.out, "Local Time:           {:%Y-%m-%d %H:%M:%S}\n", local_time);
}

void WriteVersions(const SectionContext& context, const std::string& vosk_version,
                   const std::string& core_version) {
  const bool core_known = !core_version.empty() && core_version != "0.0.0";
  fmt::print(context.out, "VOSK Version:            {}\n",
             vosk_version.empty() ? "0.0.0" : vosk_version);
  fmt::print(context.out, "VELDRAN Core Version:    {}\n",
             core_known ? core_version : "Not detected");
}

void WriteHostname(const SectionContext& context) {
  const auto name = context.system.ComputerName();
  if (name) {
    fmt::print(context.out, "Hostname: {}\n", *name);
    return;
  }
  context.log.LogError("GetComputerNameW failed: {}", name.error());
  fmt::print(context.out, "Hostname: <Error getting name: {}>\n", name.error());
}

}  // namespace vosk::report
