#include "dumps/procdump_acquisition.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "simulation/zip_bytes.h"
#include "tests/support/checked_host.h"
#include "tests/support/fake_downloader.h"
#include "tests/support/meddling_files.h"
#include "tests/support/transcript.h"
#include "tests/support/variants.h"

namespace vosk::dumps {
namespace {

namespace fs = std::filesystem;
using support::SimulatedHost;
using support::ZipBytes;

const std::string kBoth =
    ZipBytes({{"Eula.txt", "terms"}, {"procdump.exe", "32 bit"}, {"procdump64.exe", "64 bit"}});

// A supervisor without ProcDump, and a site that has it.
struct Bench {
  Bench(SimulatedHost& a_host, console::LogSink& log)
      : host(a_host), acquisition(files, host.system, log, downloader) {
    Serve(kBoth);
  }
  void Serve(const std::string& zip) {
    downloader.fetch = [this, zip](const std::string&, const fs::path& destination) {
      host.PutFile(destination, zip);
      return true;
    };
  }
  // Returns the outcome, what the operator was shown, and what there is now.
  std::string Ensure(const fs::path& directory) {
    const bool there = acquisition.EnsureProcDumpExists(directory, "C:/Dumps");
    std::string end = fmt::format("{}, asked for [{}]\n", there, fmt::join(downloader.urls, " "));
    for (const auto& box : host.system.boxes)
      end += fmt::format("box {}: {}\n", box.title, box.text);
    for (const fs::path& in : {directory, fs::path("C:/Dumps")}) {
      for (const std::string& name : SimulatedHost::NamesIn(in)) {
        const fs::path path = in / name;
        const bool shown = path.extension() == ".exe" && fs::is_regular_file(path);
        end += fmt::format("{}: {}\n", path.string(), shown ? SimulatedHost::ReadFile(path) : "");
      }
    }
    return end;
  }

  SimulatedHost& host;
  support::FakeDownloader downloader;
  support::MeddlingFiles files{host.files};
  ProcDumpAcquisition acquisition;
};

TEST(ProcDumpAcquisition, TellsOfEveryFault) {
  support::ExpectFaultTranscript("dumps/procdump_acquisition_faults.txt",
                                 {.act = [](SimulatedHost& host, console::LogSink& log) {
                                   return Bench(host, log).Ensure("C:/new/deep");
                                 }});
}

TEST(ProcDumpAcquisition, TakesWhatThereIs) {
  const auto throws = [](const fs::path&) { throw std::runtime_error("no memory"); };
  const auto present = [](const std::string& name) {
    return [name](Bench& bench) { bench.host.PutFile("C:/dir/" + name, "MZ"); };
  };
  const auto serve = [](const std::string& zip) {
    return [zip](Bench& bench) { bench.Serve(zip); };
  };
  const std::pair<std::string, std::function<void(Bench&)>> rows[] = {
      {"both in the zip", [](Bench&) {}},
      {"already there", present("procdump64.exe")},
      {"the fallback already there", present("procdump.exe")},
      {"another file there", present("other.exe")},
      {"an empty file there",
       [](Bench& bench) { bench.host.PutFile("C:/dir/procdump64.exe", ""); }},
      {"no download", [](Bench& bench) { bench.downloader.fetch = nullptr; }},
      {"only the fallback in the zip", serve(ZipBytes({{"procdump.exe", "32 bit"}}))},
      {"neither name in the zip", serve(ZipBytes({{"x64/procdump64.exe", "in a folder"}}))},
      {"a page", serve("<html>" + std::string(100, ' ') + "</html>")},
      {"a broken member", serve(std::string(kBoth).replace(kBoth.find("64 bit"), 2, "46"))},
      {"a full disk",
       [](Bench&) {
         fs::create_directories("C:/dir");
         fs::create_symlink("/dev/full", "C:/dir/procdump64.exe.new");
       }},
      {"gone again",
       [](Bench& bench) {
         bench.host.choke.faults.Add({.scope = "files.Exists", .first = 5, .count = 2, .code = 5});
       }},
      {"an exception while the directory is made",
       [&](Bench& bench) { bench.files.before_create_directories = throws; }},
      {"an exception while the zip is removed",
       [&](Bench& bench) { bench.files.before_remove = throws; }},
  };
  support::Variants variants;
  for (const auto& [name, change] : rows) {
    support::CheckedHost host;
    support::LogRecorder log(host);
    Bench bench(host, log.Sink());
    change(bench);
    const std::string end = bench.Ensure("C:/dir");
    variants.Add(name, log.Lines(), end);
  }
  variants.Expect("dumps/procdump_acquisition_cases.txt");
}

}  // namespace
}  // namespace vosk::dumps
