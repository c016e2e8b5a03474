#include <fmt/format.h>
#include <miniz.h>

#include "bench/benches.h"
#include "bench/measure.h"
#include "report/archive/report_archive.h"
#include "simulation/log_recorder.h"
#include "simulation/simulated_host.h"

namespace vosk::bench {
namespace {

constexpr std::uint64_t kDumpSize = 64 * kMebibyte;
constexpr int kRounds = 9;
constexpr double kMostAdded = 0.03;

void PackWithMinizAlone(const std::string& zip_path, const std::string& dump_path) {
  mz_zip_archive zip{};
  const bool packed =
      mz_zip_writer_init_file_v2(&zip, zip_path.c_str(), 0, MZ_ZIP_FLAG_WRITE_ZIP64) != 0 &&
      mz_zip_writer_add_file(&zip, "sample.dmp", dump_path.c_str(), nullptr, 0,
                             mz_uint{MZ_BEST_COMPRESSION} | mz_uint{MZ_ZIP_FLAG_WRITE_ZIP64}) !=
          0 &&
      mz_zip_writer_finalize_archive(&zip) != 0 && mz_zip_writer_end(&zip) != 0;
  StopUnless(packed, "miniz alone could not pack the sample dump");
}

}  // namespace

bool MeasurePacking(const std::filesystem::path& work_directory) {
  const auto directory = std::filesystem::absolute(work_directory);
  const auto dump = directory / "sample.dmp";
  const auto our_zip = directory / "ours.zip";
  const auto their_zip = directory / "theirs.zip";
  WriteSampleDump(dump, kDumpSize);

  simulation::SimulatedHost host;
  simulation::LogRecorder log(host);
  console::TransferProgress progress;
  report::ReportArchive archive(host.files, host.system, host.clock, log.Sink(), progress);

  const Comparison medians = Compare(
      kRounds,
      [&] { StopUnless(archive.CreateReportZip(our_zip, dump, {}), "CreateReportZip failed"); },
      [&] { PackWithMinizAlone(their_zip, dump); });
  const auto zip_size = std::filesystem::file_size(our_zip);
  for (const auto& path : {dump, our_zip, their_zip}) std::filesystem::remove(path);

  const double added = medians.ratio.wall - 1;
  const double added_processor = medians.ratio.processor - 1;
  fmt::print("{} MiB dump to {} MiB at level 9, medians of {} runs each, in turn\n",
             kDumpSize / kMebibyte, zip_size / kMebibyte, kRounds);
  fmt::print("  VOSK         {:7.3f} s  (processor {:7.3f} s)\n", medians.ours.wall,
             medians.ours.processor);
  fmt::print("  miniz alone  {:7.3f} s  (processor {:7.3f} s)\n", medians.theirs.wall,
             medians.theirs.processor);
  const bool met = added <= kMostAdded;
  fmt::print("  added {:+.1f} % (processor {:+.1f} %), target at most {:.0f} %: {}\n", added * 100,
             added_processor * 100, kMostAdded * 100, met ? "met" : "MISSED");
  return met;
}

}  // namespace vosk::bench
