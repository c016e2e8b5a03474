#include "net/http_download.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"
#include "tests/support/scripted_peer.h"

namespace vosk::net {
namespace {

namespace fs = std::filesystem;
using support::CheckedHost;
using support::LogHas;
using support::LogIs;
using support::LogText;
using support::MeddlingFiles;
using support::ScriptedPeer;
using support::SimulatedHost;

const fs::path kTarget = "work/package.zip";
const std::string kRemoved = "[INFO] Removed incomplete download file: work/package.zip";

class HttpDownloadTest : public testing::Test {
 protected:
  HttpDownloadTest() { host_.PutFile(kTarget, "an older package"); }

  void Download(DownloadLimits limits = {}) {
    peer_.Run([this, limits] {
      return HttpDownloader(files_, clock_, log_.Sink(), progress_, terminate_, limits)
          .DownloadFile(peer_.Url() + "package", kTarget);
    });
  }
  // The download failed, left nothing and told this.
  void ExpectFailed(const LogText& log) {
    EXPECT_FALSE(peer_.Result());
    EXPECT_FALSE(fs::exists(kTarget));
    ExpectHidden();
    EXPECT_THAT(NewLines(), LogIs(log));
  }
  void ExpectHidden() {
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }
  // What was logged by this download, without its first two lines and those of its progress.
  LogText NewLines() {
    const LogText lines = log_.Lines();
    const LogText announced = {"[INFO] Attempting download from URL: " + peer_.Url() + "package",
                               "[INFO] Saving downloaded file to: work/package.zip"};
    EXPECT_EQ(LogText({lines.at(seen_lines_), lines.at(seen_lines_ + 1)}), announced);
    LogText rest;
    for (seen_lines_ += 2; seen_lines_ < lines.size(); ++seen_lines_) {
      const std::string& line = lines[seen_lines_];
      (line.starts_with("[PROG]") ? progress_lines_ : rest).push_back(line);
    }
    return rest;
  }

  // Time passes with every look at it, where a test wants that.
  class HurryingClock : public support::SimClock {
   public:
    using SimClock::SimClock;
    support::Duration step{0};
    std::chrono::steady_clock::time_point SteadyNow() override {
      Advance(step);
      return SimClock::SteadyNow();
    }
  };

  CheckedHost host_;
  MeddlingFiles files_{host_.files};
  HurryingClock clock_{host_.choke};
  support::LogRecorder log_{host_};
  std::size_t seen_lines_ = 0;
  LogText progress_lines_;
  console::TransferProgress progress_;
  std::atomic<bool> terminate_{false};
  ScriptedPeer peer_;
};

TEST_F(HttpDownloadTest, PutsTheBodyIntoTheFileAsItComes) {
  const std::string success = "HTTP/1.1 200 OK\r\n";
  struct Row {
    std::string name;
    std::function<void(ScriptedPeer&)> answer;
    std::string bytes;
  };
  const Row rows[] = {
      {"known length", [](ScriptedPeer& peer) { peer.Answer("200 OK", {}, "a package"); },
       "a package"},
      {"nothing", [](ScriptedPeer& peer) { peer.Answer("200 OK"); }, ""},
      {"a page", [](ScriptedPeer& peer) { peer.Answer("200 OK", {}, "<html>Log in</html>"); },
       "<html>Log in</html>"},
      // Only what was asked for would be unpacked.
      {"encoded",
       [](ScriptedPeer& peer) { peer.Answer("200 OK", {"Content-Encoding: gzip"}, "no gzip"); },
       "no gzip"},
      {"redirected",
       [](ScriptedPeer& peer) {
         peer.Answer("301 Moved Permanently", {"Location: /b"}, "a page about that");
         peer.Expect("GET /b");
         peer.Answer("307 Temporary Redirect", {"Location: " + peer.Url() + "c?d"});
         peer.Expect("GET /c?d");
         peer.Answer("200 OK", {}, "at last");
       },
       "at last"},
      {"in chunks",
       [&](ScriptedPeer& peer) {
         peer.Send(success + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n3\r\ncde\r\n0\r\n\r\n");
       },
       "abcde"},
      {"up to the end of the connection",
       [&](ScriptedPeer& peer) {
         peer.Send(success + "\r\nabc");
         peer.Drop();
       },
       "abc"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Download();
    EXPECT_EQ(peer_.Expect("GET /package").Header("User-Agent"), "VELDRAN-CrashUploader/1.8");
    row.answer(peer_);
    EXPECT_TRUE(peer_.Result());
    EXPECT_EQ(SimulatedHost::ReadFile(kTarget), row.bytes);
    ExpectHidden();
    EXPECT_THAT(NewLines(), LogIs({"[INFO] DownloadFile: Download completed successfully."}));
  }
}

TEST_F(HttpDownloadTest, FailuresLeaveNoFile) {
  struct Row {
    std::string name;
    std::function<void(ScriptedPeer&)> answer;
    std::string outcome;
  };
  const auto send = [](const std::string& bytes) {
    return [bytes](ScriptedPeer& peer) {
      peer.Send(bytes);
      peer.Drop();
    };
  };
  const Row rows[] = {
      {"missing", [](ScriptedPeer& peer) { peer.Answer("404 Not Found", {}, "a page"); },
       "22 (HTTP response code said error), HTTP Status: 404"},
      {"broken server", [](ScriptedPeer& peer) { peer.Answer("500 Broken"); },
       "22 (HTTP response code said error), HTTP Status: 500"},
      {"missing after a redirection",
       [](ScriptedPeer& peer) {
         peer.Answer("302 Found", {"Location: /b"});
         peer.Expect("GET /b");
         peer.Answer("403 Forbidden");
       },
       "22 (HTTP response code said error), HTTP Status: 403"},
      {"redirected in a circle",
       [](ScriptedPeer& peer) {
         for (int n = 0; n < 30; ++n) {
           peer.Answer("302 Found", {"Location: /package"});
           peer.Expect("GET /package");
         }
         peer.Answer("302 Found", {"Location: /package"});
       },
       "47 (Number of redirects hit maximum amount), HTTP Status: 302"},
      {"no answer", send(""), "52 (Server returned nothing (no headers, no data))"},
      {"no HTTP", send("what?\r\n\r\n"), "1 (Unsupported protocol)"},
      {"cut midway", send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf"),
       "18 (Transferred a partial file), HTTP Status: 200"},
      {"cut in a chunk", send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n9\r\nhalf"),
       "18 (Transferred a partial file), HTTP Status: 200"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Download();
    peer_.Expect("GET /package");
    row.answer(peer_);
    ExpectFailed({"[ERROR] DownloadFile: Download failed. CURLcode: " + row.outcome, kRemoved});
    peer_.Drop();
  }
  peer_.GoDown();
  Download();
  ExpectFailed({"[ERROR] DownloadFile: Download failed. CURLcode: 7 (Couldn't connect to server)",
                kRemoved});
}

TEST_F(HttpDownloadTest, UnwritableDestinationsAskNoServer) {
  host_.FailNext("files.OpenForWriting", EACCES);
  Download();
  EXPECT_FALSE(peer_.Result());
  EXPECT_EQ(SimulatedHost::ReadFile(kTarget), "an older package");
  fs::remove_all(kTarget.parent_path());
  Download();
  EXPECT_FALSE(peer_.Result());
  const std::string failed =
      "[ERROR] DownloadFile: Failed to open destination file for writing: work/package.zip. "
      "Error: ";
  EXPECT_THAT(NewLines(),
              testing::ElementsAre(failed + "Permission denied (Code: 13)", testing::_, testing::_,
                                   failed + "No such file or directory (Code: 2)"));
  ExpectHidden();
}

TEST_F(HttpDownloadTest, FullDiskEndsTheDownload) {
  struct Row {
    std::string name;
    std::function<void()> set_up;
    LogText log;
  };
  const Row rows[] = {
      {"removed", [] {}, {kRemoved}},
      {"held",
       [this] { host_.FailNext("files.Remove", 32); },
       {"[WARN] Failed to remove incomplete download file: work/package.zip. Error: The process "
        "cannot access the file because it is being used by another process."}},
      {"unclear", [this] { host_.FailNext("files.Exists", 5); }, {kRemoved}},
      {"gone",
       [this] { files_.before_exists = [](const fs::path& path) { fs::remove(path); }; },
       {}},
      {"gone just then",
       [this] { files_.before_remove = [](const fs::path& path) { fs::remove(path); }; },
       {}},
      {"an exception",
       [this] {
         files_.before_exists = [](const fs::path&) { throw std::runtime_error("no memory"); };
       },
       {"[WARN] Exception while removing incomplete download file 'work/package.zip': no memory"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    row.set_up();
    fs::remove(kTarget);
    fs::create_symlink("/dev/full", kTarget);
    Download();
    peer_.Expect("GET /package");
    peer_.Answer("200 OK", {}, "a package");
    EXPECT_FALSE(peer_.Result());
    ExpectHidden();
    LogText log = {
        "[WARN] DownloadFile: Writing to work/package.zip failed. Error: No space left "
        "on device (Code: 28)",
        "[ERROR] DownloadFile: Download failed. CURLcode: 23 (Failed writing received "
        "data to disk/application), HTTP Status: 200"};
    log.insert(log.end(), row.log.begin(), row.log.end());
    EXPECT_THAT(NewLines(), LogIs(log));
    files_.before_exists = files_.before_remove = [](const fs::path&) {};
    host_.choke.faults.Clear();
    peer_.Drop();
  }
}

TEST_F(HttpDownloadTest, StalledServersAreGivenUp) {
  const DownloadLimits limits;
  EXPECT_EQ(limits.connect_seconds, 60);
  EXPECT_EQ(limits.slowest_bytes_per_second, 1'024);
  EXPECT_EQ(limits.slowest_seconds, 60);
  Download({.slowest_seconds = 1});
  peer_.Expect("GET /package");
  peer_.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + std::string(100, 'x'));
  ExpectFailed(
      {"[ERROR] DownloadFile: Download failed. CURLcode: 28 (Timeout was reached), HTTP "
       "Status: 200",
       kRemoved});
}

TEST_F(HttpDownloadTest, TerminationBreaksADownloadOff) {
  Download();
  peer_.Expect("GET /package");
  peer_.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + std::string(500, 'x'));
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (progress_.Percentage() < 50.0 && std::chrono::steady_clock::now() < patience) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(progress_.Percentage(), 50.0);
  terminate_ = true;
  ExpectFailed({"[WARN] Download interrupted by termination request.",
                "[ERROR] DownloadFile: Download failed. CURLcode: 42 (Operation was aborted by an "
                "application callback), HTTP Status: 200",
                kRemoved});
}

TEST_F(HttpDownloadTest, ShowsBytesWhileTheTotalIsUnknown) {
  clock_.step = std::chrono::milliseconds(1'001);
  Download();
  peer_.Expect("GET /package");
  peer_.Send("HTTP/1.1 200 OK\r\n\r\n" + std::string(3'000, 'x'));
  peer_.Drop();
  EXPECT_TRUE(peer_.Result());
  EXPECT_THAT(NewLines(), LogIs({"[INFO] DownloadFile: Download completed successfully."}));
  EXPECT_EQ(progress_lines_.back(), "[PROG] Downloading: 2 KB / ???");
}

// The bytes of this process that are in memory, in KB: "VmRSS" now, "VmHWM" at most.
std::size_t MemoryOf(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field + ":")) return std::stoul(line.substr(field.size() + 1));
  }
  ADD_FAILURE() << "no " << field;
  return 0;
}

TEST_F(HttpDownloadTest, LargeBodiesAreNotHeldInMemory) {
  constexpr int kBlocks = 100;
  clock_.step = std::chrono::milliseconds(200);
  std::string block(1 << 20, 'x');
  double highest = 0;
  log_.Sink().SetRedrawHook([&] { highest = std::max(highest, progress_.Percentage()); });
  std::ofstream("/proc/self/clear_refs") << 5;  // forgets the peak so far
  const std::size_t memory_before = MemoryOf("VmRSS");
  Download();
  peer_.Expect("GET /package");
  peer_.Send(fmt::format("HTTP/1.1 200 OK\r\nContent-Length: {}\r\n\r\n", kBlocks * block.size()));
  for (int n = 0; n < kBlocks; ++n) {
    block.replace(0, 3, fmt::format("{:3}", n));
    ASSERT_TRUE(peer_.Send(block));
  }
  EXPECT_TRUE(peer_.Result());
  EXPECT_LT(MemoryOf("VmHWM"), memory_before + 32'000);

  ASSERT_EQ(fs::file_size(kTarget), kBlocks * block.size());
  std::ifstream file(kTarget, std::ios::binary);
  for (int n = 0; n < kBlocks; ++n) {
    std::string bytes(block.size(), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(bytes == block.replace(0, 3, fmt::format("{:3}", n))) << n;
  }
  EXPECT_THAT(NewLines(), LogIs({"[INFO] DownloadFile: Download completed successfully."}));
  // The first, the last, and not more than two in a second.
  EXPECT_LE(progress_lines_.size(), 2 + clock_.Elapsed() / std::chrono::milliseconds(500));
  EXPECT_EQ(progress_lines_.back(), "[PROG] Downloading: 100.00 MB / 100.00 MB (100.0%)");
  EXPECT_EQ(highest, 99.9);
}

TEST_F(HttpDownloadTest, RefusesAnUnknownCertificate) {
  const support::UnknownTlsServer server;
  HttpDownloader downloader(files_, clock_, log_.Sink(), progress_, terminate_);
  EXPECT_FALSE(downloader.DownloadFile(server.Url(), kTarget));
  EXPECT_FALSE(fs::exists(kTarget));
  EXPECT_THAT(log_.Lines(), LogHas({"[ERROR] DownloadFile: Download failed. CURLcode: 60 (SSL peer "
                                    "certificate or SSH remote key was not OK)",
                                    kRemoved}));
}

}  // namespace
}  // namespace vosk::net
