#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

#include "bench/benches.h"
#include "bench/discarding_server.h"
#include "bench/measure.h"
#include "report/archive/report_archive.h"
#include "report/upload/tus_client.h"
#include "simulation/log_recorder.h"
#include "simulation/simulated_host.h"

namespace vosk::bench {
namespace {

constexpr double kMostMegabytes = 4.0;
constexpr std::uint64_t kDumpSizes[] = {64 * kMebibyte, 1024 * kMebibyte};

double PeakMegabytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::atof(line.c_str() + 6) * 1024 / 1e6;
  }
  Stop("this system does not tell a process's peak memory");
}

// Packs and uploads in a fresh process; returns the peak above the idle program, in megabytes.
double RunInFreshProcess(const std::filesystem::path& directory, const std::filesystem::path& dump,
                         const std::string& url) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string command =
      fmt::format("'{}' '{}' memory-child '{}' '{}'", self, directory.string(), dump.string(), url);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> child(popen(command.c_str(), "r"), &pclose);
  double idle = 0;
  double packed = 0;
  double uploaded = 0;
  StopUnless(std::fscanf(child.get(), "%lf %lf %lf", &idle, &packed, &uploaded) == 3,
             "the measured process failed");
  fmt::print("  {:4} MiB dump: idle {:.2f} MB, after packing {:+.2f}, after uploading {:+.2f}\n",
             std::filesystem::file_size(dump) / kMebibyte, idle, packed - idle, uploaded - idle);
  return uploaded - idle;
}

}  // namespace

int RunMemoryChild(const std::filesystem::path& work_directory, const std::filesystem::path& dump,
                   const char* server_url) {
  simulation::SimulatedHost host;
  simulation::LogRecorder log(host);
  console::TransferProgress progress;
  report::ReportArchive archive(host.files, host.system, host.clock, log.Sink(), progress);
  report::TusClient client(server_url, host.files, host.clock, log.Sink(), progress);
  const auto zip = work_directory / "memory.zip";

  const double idle = PeakMegabytes();
  if (!archive.CreateReportZip(zip, dump, {})) return 2;
  const double packed = PeakMegabytes();
  if (!client.TusUpload(zip)) return 2;
  fmt::print("{} {} {}\n", idle, packed, PeakMegabytes());
  return 0;
}

bool MeasureMemory(const std::filesystem::path& work_directory) {
  const auto directory = std::filesystem::absolute(work_directory);
  const DiscardingServer server;
  const auto dump = directory / "memory.dmp";
  double most = 0;
  fmt::print("peak memory (VmHWM) of a fresh process\n");
  for (const std::uint64_t size : kDumpSizes) {
    WriteSampleDump(dump, size);
    most = std::max(most, RunInFreshProcess(directory, dump, server.Url()));
  }
  std::filesystem::remove(dump);
  const bool met = most < kMostMegabytes;
  fmt::print("  target below {:.0f} MB above idle: {}\n", kMostMegabytes, met ? "met" : "MISSED");
  return met;
}

}  // namespace vosk::bench
