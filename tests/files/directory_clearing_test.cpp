#include "files/directory_clearing.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/checked_host.h"
#include "tests/support/meddling_files.h"
#include "tests/support/variants.h"

namespace vosk::files {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using support::MeddlingFiles;
using support::SimulatedHost;

using Change = std::function<void(SimulatedHost&, MeddlingFiles&)>;

// Puts a file and a link out of the directory.
void PutDirectory(SimulatedHost& host) {
  host.PutFile("C:/d/file", "x");
  host.PutFile("C:/Elsewhere/mine", "not for us");
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), "C:/d/link");
}

TEST(ClearDirectory, TriesAgainAndStaysInside) {
  struct Row {
    std::string what;
    fs::path path = "C:/d";
    Change change = [](SimulatedHost&, MeddlingFiles&) {};
  };
  const auto throws = [](const auto& problem) {
    return [problem](SimulatedHost&, MeddlingFiles& files) {
      files.before_remove = [problem](const fs::path&) { throw problem; };
    };
  };
  const auto held_for = [](support::Duration time) {
    return [time](SimulatedHost& host, MeddlingFiles&) {
      host.files.Hold("C:/d/file", {});
      host.At(time, [](SimulatedHost& at) { at.files.Release("C:/d/file"); });
    };
  };
  const Row rows[] = {
      {"clean"},
      {"held for a moment", "C:/d", held_for(support::Duration(70))},
      {"held for ever", "C:/d", held_for(seconds(70))},
      {"missing", "C:/missing"},
      {"a file", "C:/d/file"},
      {"a link", "C:/d/link/"},
      {"filesystem exception", "C:/d", throws(fs::filesystem_error("gone", {}))},
      {"standard exception", "C:/d", throws(std::runtime_error("no memory"))},
      {"any exception", "C:/d", throws(42)},
      {"exception at first", "C:/d",
       [](SimulatedHost&, MeddlingFiles& files) {
         files.before_exists = [](const fs::path&) { throw std::runtime_error("no memory"); };
       }},
  };
  support::Variants variants;
  for (const Row& row : rows) {
    support::CheckedHost host;
    support::LogRecorder log(host);
    MeddlingFiles files(host.files);
    PutDirectory(host);
    row.change(host, files);
    const bool done = ClearDirectory(files, host.clock, log.Sink(), row.path);
    variants.Add(row.what, log.Lines(),
                 fmt::format("{} after {}, left: [{}], elsewhere: [{}]", done, host.clock.Elapsed(),
                             fmt::join(SimulatedHost::NamesIn("C:/d"), " "),
                             fmt::join(SimulatedHost::NamesIn("C:/Elsewhere"), " ")));
  }
  variants.Expect("files/clear_directory.txt");
}

}  // namespace
}  // namespace vosk::files
