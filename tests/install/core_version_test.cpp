#include "install/core_version.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/support/checked_host.h"
#include "tests/support/transcript.h"
#include "tests/support/variants.h"

namespace vosk::install {
namespace {

using support::SimulatedHost;

constexpr char kFile[] = "C:/stats/CoreVersion.txt";

TEST(CoreVersion, TellsOfEveryFault) {
  support::ExpectFaultTranscript(
      "install/core_version_faults.txt",
      {.arrange = [](SimulatedHost& host) { host.PutFile(kFile, "1.2.3"); },
       .act =
           [](SimulatedHost& host, console::LogSink& log) {
             CoreVersion version(host.files, log);
             std::string read = ReadCoreVersionFile(host.files, "C:/stats");
             for (const bool quiet : {false, true}) read += ", " + version.Read("C:/stats", quiet);
             return fmt::format("{}; known: {}", read, version.Current());
           }});
}

// Reads again and again: each row has the file's contents and whether the read is quiet.
TEST(CoreVersion, TellsWhatIsNew) {
  const std::pair<const char*, bool> reads[] = {
      {"<none>", true},
      {"<none>", true},
      {"<none>", false},
      {"", true},
      {"", true},
      {"  \r\n1.2.3", true},
      {" \t1.2.3 \r\nno", false},
      {"1.2.3", false},
      {"1.2.3", true},
      {"1.3.0\x1b[2J", true},
      {"", true},
  };
  support::CheckedHost host;
  support::LogRecorder log(host);
  CoreVersion version(host.files, log.Sink());
  std::string end;
  for (const auto& [contents, quiet] : reads) {
    std::filesystem::remove(kFile);
    if (contents != std::string("<none>")) host.PutFile(kFile, contents);
    const std::size_t lines = log.Lines().size();
    end += version.Read("C:/stats", quiet) + " and " + ReadCoreVersionFile(host.files, "C:/stats");
    end += fmt::format(", lines: {}\n", log.Lines().size() - lines);
  }
  version.Set("");
  host.PutFile(kFile, "1.3.0");
  end += version.Read("C:/stats", true);
  end += version.Read({}, true);
  support::Variants reading;
  reading.Add("one read after the other", log.Lines(), end);
  reading.Expect("install/core_version_reads.txt");
}

}  // namespace
}  // namespace vosk::install
