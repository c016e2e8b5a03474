#include "files/tree_removal.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/support/checked_host.h"
#include "tests/support/stored_text.h"
#include "tests/support/transcript.h"

namespace vosk::files {
namespace {

namespace fs = std::filesystem;
using support::SimulatedHost;

// Makes a work directory with a link to a directory outside it.
void PutTree(SimulatedHost& host) {
  host.PutFile("C:/Temp/Work/a.log", "12345");
  host.PutFile("C:/Temp/Work/deep/b.msi", "1234567");
  host.PutFile("C:/Temp/Workbench/mine", "x");
  host.PutFile("C:/Elsewhere/mine", "not for us");
  fs::create_directory_symlink(fs::absolute("C:/Elsewhere"), "C:/Temp/Work/deep/link");
}

std::string Outcome(SimulatedHost& host, const fs::path& path, const fs::path& limit) {
  const auto removed = RemoveTree(host.files, path, limit);
  return fmt::format(
      "'{}' below '{}': {}", path.string(), limit.string(),
      removed ? "done" : fmt::format("{} {}", removed.error().code.value, removed.error().text));
}

// Returns everything below C:, directories included.
std::string Left() {
  std::set<std::string> left;
  for (const auto& entry : fs::recursive_directory_iterator("C:")) left.insert(entry.path());
  std::erase_if(left, [](const std::string& path) {
    return path.starts_with("C:/Users") || path.starts_with("C:/VOSK");
  });
  return fmt::format("{}", fmt::join(left, " "));
}

TEST(RemoveTree, TellsOfEveryFault) {
  support::ExpectFaultTranscript(
      "files/remove_tree_faults.txt",
      {.arrange = PutTree, .act = [](SimulatedHost& host, console::LogSink&) {
         const auto size = TreeSize(host.files, "C:/Temp/Work/");
         const std::string outcome = Outcome(host, "C:/Temp/Work/", "C:/Temp/");
         return fmt::format("{} bytes, {}\nleft: {}", size, outcome, Left());
       }});
}

TEST(RemoveTree, TakesOnlyWhatLiesBelowItsLimit) {
  const std::pair<fs::path, fs::path> rows[] = {
      // refused
      {"Temp/Work", "C:/Temp"},
      {"", ""},
      {"C:Temp", "C:Temp"},
      {"C:/Temp/Work", "Temp"},
      {"C:/Temp/Work/../Workbench", "C:/Temp/Work"},
      {"C:/Temp/Work", "C:/Temp/Work/.."},
      {"C:/Temp/Workbench", "C:/Temp/Work"},
      {"C:/Temp", "C:/Temp/Work"},
      {"D:/Temp/Work", "C:/Temp"},
      {"C:/", "C:/"},
      {"C:/Temp/Work/deep/link/mine", "C:/Temp"},
      // gone already, or not to be listed
      {"C:/Temp/Work/none/deep", "C:/Temp"},
      {"C:/Temp/Work/deep", "C:/Temp/Work"},
      // the separator at the end would lead to the link's target
      {"C:/Temp/Work/deep/link/", "C:/Temp/Work/deep/link/"},
      {"C:/Temp/Work/dangling", "C:/Temp/Work"},
      {"C:/Temp/Work/a.log", "C:/Temp/Work/a.log"},
  };
  support::CheckedHost host;
  PutTree(host);
  fs::create_symlink("nowhere", "C:/Temp/Work/dangling");
  host.files.Hold("C:/Temp/Work/deep/b.msi", {});
  std::string outcomes;
  for (const auto& [path, limit] : rows) outcomes += Outcome(host, path, limit) + '\n';
  // A drive is a letter; these are the ends of the alphabets and their neighbours.
  for (const char drive : std::string("@AZ[`az{")) {
    outcomes += Outcome(host, drive + std::string(":/none"), drive + std::string(":/")) + '\n';
  }
  support::ExpectStoredText("files/remove_tree.txt", outcomes + "left: " + Left() + '\n');
}

}  // namespace
}  // namespace vosk::files
