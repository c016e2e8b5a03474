#include "install/disk_space.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/checked_host.h"
#include "tests/support/meddling_files.h"
#include "tests/support/variants.h"

namespace vosk::install {
namespace {

using support::SimulatedHost;

class Files : public support::MeddlingFiles {
 public:
  using MeddlingFiles::MeddlingFiles;
  bool throws_when_asked_for_space = false;
  platform::Result<std::uint64_t> FreeSpace(const Path& root) override {
    if (throws_when_asked_for_space) throw std::runtime_error("no memory");
    return MeddlingFiles::FreeSpace(root);
  }
};

TEST(CheckDiskSpace, WantsTwoGibibytesOnThePathsVolume) {
  struct Row {
    std::string path;
    std::uint64_t free;
    std::function<void(SimulatedHost&, Files&)> change = [](SimulatedHost&, Files&) {};
  };
  const std::uint64_t enough = 2'147'483'648;
  const auto fails = [](const char* operation) {
    return [operation](SimulatedHost& host, Files&) { host.FailNext(operation, 5, 2); };
  };
  const Row rows[] = {
      {"C:/Program Files/Core", enough},
      {"C:/Program Files/Core", enough - 1},
      {"D:\\Core", 10 * enough},
      {"", enough * 5 / 4},
      {"C:Core", 0},
      {"C:/Core", enough, fails("files.FreeSpace")},
      {"", enough, fails("files.CurrentDirectory")},
      {"C:/", enough,
       [](SimulatedHost&, Files& files) { files.throws_when_asked_for_space = true; }},
  };
  support::Variants variants;
  for (const Row& row : rows) {
    support::CheckedHost host;
    support::LogRecorder log(host);
    Files files(host.files);
    DiskSpace space(files, log.Sink());
    host.files.free_space = row.free;
    row.change(host, files);
    // The monitoring loop asks twice a second, quietly.
    const bool quietly = space.CheckDiskSpace(row.path, false);
    const std::size_t lines = log.Lines().size();
    const bool loudly = space.CheckDiskSpace(row.path, true);
    variants.Add(fmt::format("'{}' with {} free", row.path, row.free), log.Lines(),
                 fmt::format("{} with {} lines, {}", quietly, lines, loudly));
  }
  variants.Expect("install/disk_space.txt");
}

}  // namespace
}  // namespace vosk::install
