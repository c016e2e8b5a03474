#include "zip/zip_reader.h"

#include <gtest/gtest.h>

#include "simulation/zip_bytes.h"
#include "tests/support/checked_host.h"

namespace vosk::zip {
namespace {

namespace fs = std::filesystem;
using support::SimulatedHost;
using support::ZipBytes;

const fs::path kZip = "package.zip";
const fs::path kTarget = "out/program.exe";

// Returns text that packs well, but not to nothing.
std::string Program() {
  std::string bytes;
  for (int n = 0; n < 20'000; ++n) bytes += std::to_string(n * n);
  return bytes;
}

class ZipReaderTest : public testing::Test {
 protected:
  ZipReaderTest() { fs::create_directories(kTarget.parent_path()); }

  // Opens an archive of these bytes and extracts the member: "done", or what went wrong.
  std::string Extract(const std::string& archive, const std::string& member = "program.exe") {
    host_.PutFile(kZip, archive);
    ZipReader reader(host_.files);
    if (const auto opened = reader.Open(kZip); !opened) return "cannot open: " + opened.error();
    // The reader remembers a name that it did not find; no later error may be mistaken for it.
    EXPECT_FALSE(reader.Locate("no such member"));
    const auto extracted = reader.ExtractToFile(reader.Locate(member).value(), kTarget);
    return extracted ? "done" : extracted.error();
  }

  support::CheckedHost host_;
};

TEST_F(ZipReaderTest, WritesTheMemberToTheFileThatTheCallerNames) {
  const std::vector<support::ZipMember> members = {
      {"bin/program.exe", "deeper"}, {"program.exe.bak", "older"},
      {"program.exe", Program()},    {"empty", ""},
      {"../climbs.exe", "climbs"},   {"C:/VOSK/absolute.exe", "absolute"}};
  for (const auto& [member, bytes] : members) {
    host_.PutFile(kTarget, std::string(1'000'000, 'x'));
    EXPECT_EQ(Extract(ZipBytes(members), member), "done");
    EXPECT_TRUE(SimulatedHost::ReadFile(kTarget) == bytes) << member;
  }
  EXPECT_EQ(Extract(ZipBytes(members), "PROGRAM.EXE"), "done");
  EXPECT_EQ(SimulatedHost::NamesIn("."), (std::vector<std::string>{"C:", "out", "package.zip"}));
  EXPECT_EQ(SimulatedHost::NamesIn("C:/VOSK"), std::vector<std::string>{"VOSK.exe"});
}

TEST_F(ZipReaderTest, BrokenArchivesLeaveNoFile) {
  const std::string whole = ZipBytes({{"program.exe", Program()}, {"folder/", ""}});
  // The local header and the name come before the compressed bytes.
  constexpr std::size_t kBytes = 30 + 11;
  const auto with = [&whole](std::size_t at, std::string_view bytes) {
    return std::string(whole).replace(at, bytes.size(), bytes);
  };
  // These are in the directory's entry: flags, checksum and sizes.
  const std::size_t entry = whole.find("PK\1\2");
  const std::string undone = "decompression failed or archive is corrupted";
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"empty", "", "cannot open: not a ZIP archive"},
      {"a page", "<html>" + std::string(1000, ' ') + "</html>",
       "cannot open: failed finding central directory"},
      {"end only", whole.substr(whole.size() - 22),
       "cannot open: invalid header or archive is corrupted"},
      {"senseless bytes", with(kBytes, std::string(200, '\xff')), undone},
      {"another checksum", with(entry + 16, "\1\2\3\4"), undone},
      {"longer than told", with(entry + 24, std::string_view("\1\0\0\0", 4)), undone},
      {"shorter than told", with(entry + 24, "\1\1\1\1"), "unexpected decompressed size"},
      {"nothing compressed", with(entry + 20, std::string_view("\0\0\0\0\xff\xff\xff\xff", 8)),
       "invalid header or archive is corrupted"},
      {"unknown method", with(entry + 10, "\x0e"), "unsupported feature"},
      {"no local header", with(0, "XX"), "invalid header or archive is corrupted"},
  };
  for (const auto& [name, archive, outcome] : rows) {
    EXPECT_EQ(Extract(archive), outcome) << name;
    EXPECT_FALSE(fs::exists(kTarget)) << name;
  }
  EXPECT_EQ(Extract(whole, "folder/"), "unsupported feature");
  fs::remove(kZip);
  EXPECT_EQ(ZipReader(host_.files).Open(kZip).error(), "file open failed");
}

TEST_F(ZipReaderTest, TellsWhereTheDiskIsFullAndClearsAway) {
  // A short text stays in the C library's buffer until the file is closed.
  for (const auto& [bytes, outcome] :
       {std::pair<std::string, std::string>{"x", "file close failed"},
        {Program(), "write callback failed"}}) {
    fs::create_symlink("/dev/full", kTarget);
    EXPECT_EQ(Extract(ZipBytes({{"program.exe", bytes}})), outcome);
    EXPECT_FALSE(fs::is_symlink(kTarget));
  }
  fs::create_symlink("/dev/full", kTarget);
  host_.FailNext("files.Remove", 5);
  EXPECT_EQ(Extract(ZipBytes({{"program.exe", "x"}})),
            "file close failed (the incomplete file stays: Access is denied.)");
}

TEST_F(ZipReaderTest, LeavesAloneWhatItCouldNotOpen) {
  fs::create_directory(kTarget);
  EXPECT_EQ(Extract(ZipBytes({{"program.exe", "x"}})), "file open failed");
  EXPECT_TRUE(fs::exists(kTarget));
}

}  // namespace
}  // namespace vosk::zip
