#include "platform/files.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <map>

#include "files/fixed_path.h"
#include "files/tree_removal.h"
#include "tests/contract/host_under_test.h"
#include "text/utf.h"

namespace vosk::contract {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using platform::FileType;
using platform::WalkDepth;
using Names = std::vector<std::string>;

class FileContract : public Contract {
 protected:
  // Returns the walk's entries relative to its start, in its order.
  Names Walked(const fs::path& directory, WalkDepth depth) {
    Names names;
    const auto walk = host_.files.Walk(directory, depth);
    EXPECT_TRUE(walk) << CodeOf(walk);
    for (auto entry = (*walk)->Next(); walk; entry = (*walk)->Next()) {
      EXPECT_TRUE(entry) << CodeOf(entry);
      if (!entry || !*entry) break;
      const fs::path relative = (*entry)->lexically_relative(directory);
      names.push_back(text::PathToUtf8(fs::path(relative.generic_u8string())));
      std::ranges::replace(names.back(), '\\', '/');
    }
    return names;
  }

  static Names Sorted(Names names) {
    std::ranges::sort(names);
    return names;
  }

  // Keeps a file open that is not shared.
  platform::DumpFileHandle Hold(const fs::path& path) {
    auto held = host_.dump_writer.CreateDumpFile(path);
    EXPECT_TRUE(held) << CodeOf(held);
    return std::move(*held);
  }
};

TEST_F(FileContract, ExistenceTypesAndSizes) {
  PutBytes(scratch_ / "there", "12345");
  for (const char* missing : {"missing", "missing/below", "there/below"}) {
    EXPECT_EQ(host_.files.Exists(scratch_ / missing), false) << missing;
  }
  EXPECT_EQ(host_.files.Exists(scratch_ / "there"), true);
  EXPECT_EQ(host_.files.Exists(scratch_), true);
  EXPECT_EQ(host_.files.TypeOf(scratch_ / "there"), FileType::regular);
  EXPECT_EQ(host_.files.TypeOf(scratch_), FileType::directory);
  EXPECT_EQ(CodeOf(host_.files.TypeOf(scratch_ / "missing")), 2u);
  EXPECT_EQ(CodeOf(host_.files.TypeOf(scratch_ / "missing" / "below")), 3u);
  EXPECT_EQ(host_.files.SizeOf(scratch_ / "there"), 5u);
  const auto missing = host_.files.SizeOf(scratch_ / "missing");
  EXPECT_EQ(CodeOf(missing), 2u);
  EXPECT_FALSE(missing.error().text.empty());
}

TEST_F(FileContract, RemoveTakesFilesAndEmptyDirectories) {
  PutBytes(scratch_ / "file", "x");
  fs::create_directories(scratch_ / "full" / "below");
  fs::permissions(scratch_ / "file", fs::perms::owner_read);
  EXPECT_EQ(host_.files.Remove(scratch_ / "file"), true);
  EXPECT_EQ(host_.files.Remove(scratch_ / "file"), false);
  EXPECT_EQ(host_.files.Remove(scratch_ / "missing" / "file"), false);
  EXPECT_EQ(CodeOf(host_.files.Remove(scratch_ / "full")), 145u);
  EXPECT_EQ(host_.files.Remove(scratch_ / "full" / "below"), true);
  EXPECT_EQ(host_.files.Remove(scratch_ / "full"), true);
  EXPECT_FALSE(fs::exists(scratch_ / "full"));
}

TEST_F(FileContract, OnlyReplaceTakesThePlaceOfAFile) {
  for (const auto move : {&platform::Files::Rename, &platform::Files::Replace}) {
    PutBytes(scratch_ / "a", "A");
    const auto moved = [&](const fs::path& from, const fs::path& to) {
      return CodeOf((host_.files.*move)(scratch_ / from, scratch_ / to));
    };
    EXPECT_EQ(CodeOf(host_.files.CheckRename(scratch_ / "a")), 0u);
    EXPECT_EQ(moved("a", "b"), 0u);
    EXPECT_EQ(CodeOf(host_.files.CheckRename(scratch_ / "a")), 2u);
    EXPECT_EQ(BytesOf(scratch_ / "b"), "A");
    EXPECT_EQ(moved("a", "c"), 2u);
    EXPECT_EQ(moved("b", "missing/b"), 3u);
    const auto held = Hold(scratch_ / "held");
    EXPECT_EQ(moved("held", "c"), 32u);
    EXPECT_EQ(CodeOf(host_.files.CheckRename(scratch_ / "held")), 32u);
    EXPECT_EQ(CodeOf(host_.files.Remove(scratch_ / "held")), 32u);
    EXPECT_EQ(host_.files.SizeOf(scratch_ / "held"), 0u) << "which is no matter of sharing";
  }
  PutBytes(scratch_ / "a", "new");
  EXPECT_EQ(CodeOf(host_.files.Rename(scratch_ / "a", scratch_ / "b")), 183u);
  fs::permissions(scratch_ / "b", fs::perms::owner_read);
  EXPECT_TRUE(host_.files.Flush(scratch_ / "a"));
  EXPECT_TRUE(host_.files.Replace(scratch_ / "a", scratch_ / "b"));
  EXPECT_EQ(BytesOf(scratch_ / "b"), "new");
  EXPECT_EQ(host_.files.Exists(scratch_ / "a"), false);
  EXPECT_EQ(CodeOf(host_.files.Flush(scratch_ / "a")), 2u);
  const auto held = Hold(scratch_ / "held");
  EXPECT_EQ(CodeOf(host_.files.Replace(scratch_ / "b", scratch_ / "held")), 5u);
  fs::create_directories(scratch_ / "folder");
  EXPECT_EQ(CodeOf(host_.files.Replace(scratch_ / "b", scratch_ / "folder")), 5u);
}

TEST_F(FileContract, ACopyReplacesNothingAndARenameForTheNextBootWaits) {
  PutBytes(scratch_ / "a", "A");
  EXPECT_TRUE(host_.files.Copy(scratch_ / "a", scratch_ / "b"));
  EXPECT_EQ(BytesOf(scratch_ / "b"), "A");
  EXPECT_EQ(CodeOf(host_.files.Copy(scratch_ / "a", scratch_ / "b")), 80u);
  EXPECT_EQ(CodeOf(host_.files.Copy(scratch_ / "c", scratch_ / "d")), 2u);
  EXPECT_EQ(CodeOf(host_.files.RenameAtNextBoot(scratch_ / "a", scratch_ / "e")), 0u);
  EXPECT_EQ(host_.files.Exists(scratch_ / "e"), false);
  EXPECT_EQ(BytesOf(scratch_ / "a"), "A");
}

TEST_F(FileContract, AFileIsAsOldAsItsLastWrite) {
  const fs::path path = scratch_ / "file";
  **host_.files.OpenForWriting(path) << "content";
  for (const auto age : {0h, 200h}) {
    fs::last_write_time(path, fs::last_write_time(path) - age);
    const auto written = host_.files.LastWriteTime(path);
    ASSERT_TRUE(written) << CodeOf(written);
    EXPECT_LE(std::chrono::abs(host_.clock.WallNow() - *written - age), 10s);
  }
  EXPECT_EQ(CodeOf(host_.files.LastWriteTime(scratch_ / "missing")), 2u);
}

// Reading and dumping return the system's number, writing that of the C library. The streams on the
// new file are still open when a dump is to go into it.
TEST_F(FileContract, OpeningFailsWithTheReason) {
  const auto held = Hold(scratch_ / "held");
  fs::create_directories(scratch_ / "folder");
  using Codes = std::array<std::uint32_t, 5>;
  const std::map<std::string, Codes> rows = {{"missing", {2, 0, 0, 0, 32}},
                                             {"nowhere/below", {3, 2, 2, 2, 3}},
                                             {"folder", {5, 13, 13, 13, 5}},
                                             {"held", {32, 13, 13, 13, 32}}};
  for (const auto& [name, codes] : rows) {
    const auto error = [](const auto& opened) { return opened ? 0 : opened.error().code.value; };
    const fs::path path = scratch_ / name;
    EXPECT_EQ(
        (Codes{CodeOf(host_.files.OpenForReading(path)), error(host_.files.OpenForAppending(path)),
               error(host_.files.OpenForWriting(path)), error(host_.files.OpenTextForWriting(path)),
               CodeOf(host_.dump_writer.CreateDumpFile(path))}),
        codes)
        << name;
  }
}

TEST_F(FileContract, DirectoriesAreMadeWithTheirParents) {
  EXPECT_TRUE(host_.files.CreateDirectories(scratch_ / "a" / "b" / "c"));
  EXPECT_TRUE(host_.files.CreateDirectories(scratch_ / "a" / "b" / "c")) << "it is there";
  EXPECT_TRUE(fs::is_directory(scratch_ / "a" / "b" / "c"));
  PutBytes(scratch_ / "file", "x");
  EXPECT_EQ(CodeOf(host_.files.CreateDirectories(scratch_ / "file")), 183u);
  EXPECT_EQ(CodeOf(host_.files.CreateDirectories(scratch_ / "file" / "below")), 183u);
}

TEST_F(FileContract, AWalkGivesParentsBeforeTheirEntries) {
  fs::create_directories(scratch_ / "logs" / "old");
  fs::create_directories(scratch_ / "logs" / "empty");
  PutBytes(scratch_ / "logs" / "a.log", "a");
  PutBytes(scratch_ / "logs" / "old" / "b.log", "b");
  const Names tree = Walked(scratch_ / "logs", WalkDepth::whole_tree);
  EXPECT_EQ(Sorted(tree), (Names{"a.log", "empty", "old", "old/b.log"}));
  EXPECT_LT(std::ranges::find(tree, "old"), std::ranges::find(tree, "old/b.log"));
  EXPECT_EQ(Sorted(Walked(scratch_ / "logs", WalkDepth::direct_entries)),
            (Names{"a.log", "empty", "old"}));
  EXPECT_EQ(Walked(scratch_ / "logs" / "empty", WalkDepth::whole_tree), Names{});
}

TEST_F(FileContract, NamesSurviveInUtf8) {
  const std::string name = "Überblick 日本 \U0001F600.log";
  PutBytes(scratch_ / text::PathFromUtf8(name), "content");
  EXPECT_EQ(Walked(scratch_, WalkDepth::direct_entries), Names{name});
  EXPECT_EQ(host_.files.SizeOf(scratch_ / text::PathFromUtf8(name)), 7u);
}

TEST_F(FileContract, AWalkDoesNotFollowLinks) {
  fs::create_directories(scratch_ / "walked");
  fs::create_directories(scratch_ / "elsewhere");
  PutBytes(scratch_ / "elsewhere" / "secret", "x");
  ASSERT_TRUE(side_->LinkDirectory(scratch_ / "walked" / "link", scratch_ / "elsewhere"));
  EXPECT_EQ(Walked(scratch_ / "walked", WalkDepth::whole_tree), Names{"link"});
  EXPECT_EQ(host_.files.TypeOf(scratch_ / "walked" / "link"), FileType::directory);
  EXPECT_EQ(host_.files.IsLink(scratch_ / "walked" / "link"), true);
  EXPECT_EQ(host_.files.IsLink(scratch_ / "walked"), false);
  EXPECT_EQ(host_.files.IsLink(scratch_ / "elsewhere" / "secret"), false);
  EXPECT_EQ(CodeOf(host_.files.IsLink(scratch_ / "missing")), 2u);
  EXPECT_EQ(CodeOf(host_.files.IsLink(scratch_ / "missing" / "below")), 3u);
  // Wine refuses: it follows the links of its host and finds a full directory.
  const auto removed = host_.files.Remove(scratch_ / "walked" / "link");
  EXPECT_TRUE(removed == true || CodeOf(removed) == 145u) << CodeOf(removed);
  if (!removed) side_->RemoveLink(scratch_ / "walked" / "link");
  EXPECT_EQ(Walked(scratch_ / "walked", WalkDepth::direct_entries), Names{});
  EXPECT_TRUE(fs::exists(scratch_ / "elsewhere" / "secret"));
}

TEST_F(FileContract, AWalkGoesOnWhileItsEntriesAreRemoved) {
  fs::create_directories(scratch_ / "cleared" / "below");
  for (int n = 0; n < 100; ++n) {
    PutBytes(scratch_ / "cleared" / fs::path(std::to_string(n) + " of VELDRAN Core.exe.dmp"), "x");
  }
  {
    const auto walk = host_.files.Walk(scratch_ / "cleared", WalkDepth::direct_entries);
    ASSERT_TRUE(walk);
    for (auto entry = (*walk)->Next(); entry && *entry; entry = (*walk)->Next()) {
      EXPECT_EQ(host_.files.Remove(**entry), true);
    }
  }
  EXPECT_EQ(host_.files.Remove(scratch_ / "cleared"), true);
}

// Path arithmetic differs between the sides as much as the files do.
TEST_F(FileContract, ATreeIsRemovedWithinItsLimit) {
  fs::create_directories(scratch_ / "tree" / "below" / "empty");
  PutBytes(scratch_ / "tree" / "below" / "file", "12345");
  PutBytes(scratch_ / "treetop", "1");
  fs::permissions(scratch_ / "tree" / "below" / "file", fs::perms::owner_read);
  EXPECT_EQ(text::PathToUtf8(files::VolumeRoot(scratch_)).substr(0, 2), "C:");
  EXPECT_TRUE(files::VolumeRoot("C:tree").empty());
  EXPECT_EQ(files::TreeSize(host_.files, scratch_), 6u);
  for (const fs::path& limit : {scratch_ / "treetop", scratch_ / "tree" / "..", fs::path("tree")}) {
    EXPECT_EQ(CodeOf(files::RemoveTree(host_.files, scratch_ / "tree", limit)), 87u) << limit;
  }
  EXPECT_EQ(CodeOf(files::RemoveTree(host_.files, scratch_ / "tree" / "", scratch_ / "")), 0u);
  EXPECT_EQ(Walked(scratch_, WalkDepth::direct_entries), Names{"treetop"});
}

TEST_F(FileContract, AWalkNeedsADirectory) {
  PutBytes(scratch_ / "file", "x");
  EXPECT_EQ(CodeOf(host_.files.Walk(scratch_ / "missing", WalkDepth::direct_entries)), 3u);
  // 267 on Windows, 123 under Wine.
  EXPECT_FALSE(host_.files.Walk(scratch_ / "file", WalkDepth::direct_entries));
}

TEST_F(FileContract, FreeSpaceIsThatOfARoot) {
  const auto current = host_.files.CurrentDirectory();
  ASSERT_TRUE(current) << CodeOf(current);
  const std::string root = text::PathToUtf8(*current).substr(0, 3);
  EXPECT_EQ(root[1], ':');
  const auto free = host_.files.FreeSpace(text::PathFromUtf8(root));
  ASSERT_TRUE(free) << CodeOf(free);
  EXPECT_GT(*free, 0u);
  EXPECT_EQ(CodeOf(host_.files.FreeSpace("Q:/")), 3u);
}

TEST_F(FileContract, ReadingEndsWithoutAnErrorAndSeeksBack) {
  const std::string bytes("first\r\nsecond\0third\x1a end", 24);
  PutBytes(scratch_ / "file", bytes);
  const auto stream = host_.files.OpenForReading(scratch_ / "file");
  ASSERT_TRUE(stream);
  std::string read(100, '\0');
  (*stream)->read(read.data(), 100);
  EXPECT_EQ(read.substr(0, static_cast<std::size_t>((*stream)->gcount())), bytes);
  EXPECT_TRUE((*stream)->eof());
  EXPECT_FALSE((*stream)->bad());
  (*stream)->clear();
  (*stream)->seekg(7);
  EXPECT_EQ((*stream)->get(), 's');
  EXPECT_EQ((*stream)->tellg(), 8);
  (*stream)->seekg(-3, std::ios::end);
  EXPECT_EQ((*stream)->get(), 'e');
}

TEST_F(FileContract, AReadFileMayGrowAndGoMeanwhile) {
  PutBytes(scratch_ / "file", "12");
  const auto stream = host_.files.OpenForReading(scratch_ / "file");
  ASSERT_TRUE(stream);
  EXPECT_EQ((*stream)->get(), '1');
  std::ofstream(scratch_ / "file", std::ios::binary | std::ios::app) << "34";
  std::string rest;
  std::getline(**stream, rest);
  (*stream)->clear();
  std::string grown;
  std::getline(**stream, grown);
  EXPECT_EQ(rest + grown, "234");
  EXPECT_TRUE(host_.files.Rename(scratch_ / "file", scratch_ / "moved"));
  EXPECT_EQ(host_.files.Remove(scratch_ / "moved"), true);
}

TEST_F(FileContract, FilesBeyondFourGibibytes) {
  constexpr std::uint64_t kFar = (std::uint64_t{1} << 32) + 100;
  const fs::path path = scratch_ / "large.dmp";
  {
    std::ofstream file(path, std::ios::binary);
    file.seekp(static_cast<std::streamoff>(kFar));
    file << "far";
  }
  EXPECT_EQ(host_.files.SizeOf(path), kFar + 3);
  const auto stream = host_.files.OpenForReading(path);
  ASSERT_TRUE(stream);
  (*stream)->seekg(static_cast<std::streamoff>(kFar));
  std::string read(3, '\0');
  (*stream)->read(read.data(), 3);
  EXPECT_EQ(read, "far");
  EXPECT_EQ((*stream)->tellg(), static_cast<std::streamoff>(kFar + 3));
}

TEST_F(FileContract, AppendingKeepsWhatWasThere) {
  const fs::path path = scratch_ / "VOSK.log";
  {
    const auto first = host_.files.OpenForAppending(path);
    ASSERT_TRUE(first);
    **first << "one\n" << std::flush;
  }
  const auto second = host_.files.OpenForAppending(path);
  ASSERT_TRUE(second);
  **second << "zwei \xC3\xBC\n" << std::flush;
  EXPECT_TRUE((*second)->good());
  const auto reader = host_.files.OpenForReading(path);
  ASSERT_TRUE(reader) << "others may read it meanwhile";
  std::string text(100, '\0');
  (*reader)->read(text.data(), 100);
  text.resize(static_cast<std::size_t>((*reader)->gcount()));
  EXPECT_EQ(PlainLines(text), "one\nzwei \xC3\xBC\n");
  EXPECT_EQ(CodeOf(host_.files.Remove(path)), 32u);
}

TEST_F(FileContract, WritingReplacesWhatWasThere) {
  const fs::path path = scratch_ / "report.txt";
  const std::string lines = "one\nzwei \xC3\xBC\n";
  PutBytes(path, "something longer than that");
  **host_.files.OpenForWriting(path) << lines;
  EXPECT_EQ(BytesOf(path), lines);
  PutBytes(path, "something longer than that");
  **host_.files.OpenTextForWriting(path) << lines;
  EXPECT_EQ(PlainLines(BytesOf(path)), lines);
}

TEST_F(FileContract, PathsMayBeLongerThanTheOldLimit) {
  fs::path deep = scratch_;
  for (int n = 0; n < 6; ++n) deep /= std::string(60, static_cast<char>('a' + n));
  EXPECT_TRUE(host_.files.CreateDirectories(deep));
  {
    const auto log = host_.files.OpenForAppending(deep / "log");
    ASSERT_TRUE(log);
    **log << "text" << std::flush;
  }
  EXPECT_EQ(host_.files.SizeOf(deep / "log"), 4u);
  EXPECT_TRUE(host_.files.LastWriteTime(deep / "log"));
  EXPECT_EQ(Walked(deep, WalkDepth::direct_entries), Names{"log"});
  EXPECT_TRUE(host_.files.Rename(deep / "log", deep / "moved"));
  EXPECT_TRUE(host_.files.OpenForReading(deep / "moved"));
  EXPECT_EQ(host_.files.Remove(deep / "moved"), true);
  for (int n = 0; n < 6; ++n, deep = deep.parent_path()) {
    EXPECT_EQ(host_.files.Remove(deep), true);
  }
}

}  // namespace
}  // namespace vosk::contract
