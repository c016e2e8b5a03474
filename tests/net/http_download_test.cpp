#include "net/http_download.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/support/hurrying_clock.h"
#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/stored_text.h"
#include "tests/support/transcript.h"

namespace vosk::net {
namespace {

namespace fs = std::filesystem;
using support::LogText;
using support::MeddlingFiles;
using support::ScriptedPeer;
using support::SimulatedHost;

const fs::path kTarget = "work/package.zip";

class HttpDownloadTest : public testing::Test {
 protected:
  struct Row {
    std::string name;
    std::function<void(ScriptedPeer&)> answer;
    std::function<void()> before = [] {};
  };

  HttpDownloadTest() { host_.PutFile(kTarget, "an older package"); }

  void Download() {
    peer_.Run([this] {
      return HttpDownloader(files_, clock_, log_.Sink(), progress_, terminate_, limits_)
          .DownloadFile(peer_.Url() + "package", kTarget);
    });
    EXPECT_EQ(peer_.Expect("GET /package").Header("User-Agent"), "VELDRAN-CrashUploader/1.8");
  }
  // What the download left, and told after its first two lines. Its progress is kept apart.
  std::string Ending() {
    const bool done = peer_.Result();
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
    const LogText lines = log_.Lines();
    EXPECT_EQ(lines.at(seen_lines_),
              "[INFO] Attempting download from URL: " + peer_.Url() + "package");
    EXPECT_EQ(lines.at(seen_lines_ + 1), "[INFO] Saving downloaded file to: work/package.zip");
    std::string text = fmt::format("  {}: {}\n", done ? "done" : "not done",
                                   fs::exists(kTarget) ? host_.ReadFile(kTarget) : "no file");
    for (seen_lines_ += 2; seen_lines_ < lines.size(); ++seen_lines_) {
      const std::string& line = lines[seen_lines_];
      if (!line.starts_with("[PROG]"))
        text += "  " + line + '\n';
      else
        progress_lines_.push_back(line);
    }
    return text;
  }
  void BreakOffHalfWay() {
    clock_.step = std::chrono::milliseconds(501);
    log_.Sink().SetRedrawHook([this] {
      if (terminate_ || progress_.Percentage() != 50.0) return;
      EXPECT_GT(fs::file_size(kTarget), 900'000u) << "the body is to go to the disk as it comes";
      terminate_ = true;
    });
  }
  void FillDisk() {
    fs::remove(kTarget);
    fs::create_symlink("/dev/full", kTarget);
  }

  support::CheckedHost host_;
  MeddlingFiles files_{host_.files};
  support::HurryingClock clock_{host_.choke};
  support::LogRecorder log_{host_};
  std::size_t seen_lines_ = 0;
  LogText progress_lines_;
  console::TransferProgress progress_;
  std::atomic<bool> terminate_{false};
  DownloadLimits limits_;
  ScriptedPeer peer_;
};

TEST_F(HttpDownloadTest, KeepsTheBodyOrNothing) {
  const auto answer = [](const std::string& status, const std::string& body = {}) {
    return [=](ScriptedPeer& peer) { peer.Answer(status, {}, body); };
  };
  const auto send = [](const std::string& headers, const std::string& body, bool drop = true) {
    return [=](ScriptedPeer& peer) {
      peer.Send("HTTP/1.1 200 OK\r\n" + headers + "\r\n" + body);
      if (drop) peer.Drop();
    };
  };
  const auto redirect = [](int times, const std::string& then) {
    return [=](ScriptedPeer& peer) {
      for (int n = 0; n < times; ++n) {
        peer.Answer("302 Found", {"Location: /package"}, "a page about that");
        peer.Expect("GET /package");
      }
      peer.Answer(then, {"Location: /package"}, "at last");
    };
  };
  const auto remove = [](const fs::path& path) { fs::remove(path); };
  const auto fail = [](const fs::path&) { throw std::runtime_error("no memory"); };
  const Row rows[] = {
      {"known length", answer("200 OK", "a package")},
      {"nothing", answer("200 OK")},
      // Only what was asked for would be unpacked.
      {"encoded", send("Content-Encoding: gzip\r\n", "no gzip")},
      {"in chunks", send("Transfer-Encoding: chunked\r\n", "2\r\nab\r\n3\r\ncde\r\n0\r\n\r\n")},
      {"up to the end of the connection", send("", "abc")},
      {"redirected", redirect(30, "200 OK")},
      {"redirected in a circle", redirect(30, "302 Found")},
      {"redirected to another protocol",
       [](ScriptedPeer& peer) { peer.Answer("302 Found", {"Location: ftp://127.0.0.1:1/"}); }},
      {"missing after a redirection", redirect(1, "403 Forbidden")},
      {"bad request", answer("400 Bad Request", "a page")},
      {"no answer", [](ScriptedPeer& peer) { peer.Drop(); }},
      {"cut midway", send("Content-Length: 10\r\n", "half")},
      {"cut in a chunk", send("Transfer-Encoding: chunked\r\n", "9\r\nhalf")},
      {"disk full", answer("200 OK", "a package"), [&] { FillDisk(); }},
      {"gone already", answer("404 Not Found"), [&] { files_.before_remove = remove; }},
      {"an exception", answer("404 Not Found"), [&] { files_.before_exists = fail; }},
      {"stalled for a second", send("Content-Length: 1000000\r\n", "half", false),
       [&] { limits_.slowest_seconds = 1; }},
      {"terminated half-way",
       send("Content-Length: 2000000\r\n", std::string(1'000'000, 'x'), false),
       [&] { BreakOffHalfWay(); }},
  };
  std::string text;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    row.before();
    Download();
    row.answer(peer_);
    text += row.name + '\n' + Ending();
    peer_.Drop();
    files_.before_exists = files_.before_remove = [](const fs::path&) {};
  }
  support::ExpectStoredText("net/downloads.txt", text);
}

TEST_F(HttpDownloadTest, IsPatientForAMinute) {
  EXPECT_EQ(limits_.connect_seconds, 60);
  EXPECT_EQ(limits_.slowest_bytes_per_second, 1'024);
  EXPECT_EQ(limits_.slowest_seconds, 60);
}

// Nobody listens at the first port.
TEST(HttpDownloadUnderFaults, FilesThatCannotBeOpenedOrRemovedAreTold) {
  const auto arrange = [](SimulatedHost& host) { host.PutFile(kTarget, "an older package"); };
  const auto act = [](SimulatedHost& host, console::LogSink& log) {
    console::TransferProgress progress;
    const std::atomic<bool> terminate{false};
    HttpDownloader downloader(host.files, host.clock, log, progress, terminate);
    const bool done = downloader.DownloadFile("http://127.0.0.1:1/package", kTarget);
    return fmt::format("{}, the file: {}", done ? "done" : "not done",
                       fs::exists(kTarget) ? SimulatedHost::ReadFile(kTarget) : "none");
  };
  support::ExpectFaultTranscript("net/download_under_faults.txt", {arrange, act});
}

TEST_F(HttpDownloadTest, ShowsHowFarItHasCome) {
  clock_.step = std::chrono::milliseconds(50);
  double highest = 0;
  log_.Sink().SetRedrawHook([&] { highest = std::max(highest, progress_.Percentage()); });
  std::string body(32 << 20, 'x');
  for (std::size_t at = 0; at < body.size(); at += 1'000) body[at] = static_cast<char>(at % 101);
  Download();
  peer_.Answer("302 Found", {"Location: /package"}, std::string(3'000, 'x'));
  peer_.Expect("GET /package");
  peer_.Answer("200 OK", {}, body);
  EXPECT_TRUE(Ending().find("done: " + body + '\n') == 2);
  EXPECT_EQ(highest, 99.9);
  // The first, the last, and not more than two in a second.
  EXPECT_LE(progress_lines_.size(), 2 + clock_.Elapsed() / std::chrono::milliseconds(500));
  EXPECT_THAT(progress_lines_, testing::Each(testing::HasSubstr("/ 32.00 MB")));
  EXPECT_EQ(progress_lines_.back(), "[PROG] Downloading: 32.00 MB / 32.00 MB (100.0%)");
  peer_.Drop();
  clock_.step = std::chrono::milliseconds(1'001);
  Download();
  peer_.Send("HTTP/1.1 200 OK\r\n\r\n" + std::string(3'000, 'x'));
  peer_.Drop();
  EXPECT_TRUE(Ending().starts_with("  done"));
  EXPECT_EQ(progress_lines_.back(), "[PROG] Downloading: 2 KB / ???");
}

TEST_F(HttpDownloadTest, RefusesAnUnknownCertificate) {
  const support::UnknownTlsServer server;
  HttpDownloader downloader(files_, clock_, log_.Sink(), progress_, terminate_);
  EXPECT_FALSE(downloader.DownloadFile(server.Url(), kTarget));
  EXPECT_FALSE(fs::exists(kTarget));
  EXPECT_EQ(log_.Lines().at(2),
            "[ERROR] DownloadFile: Download failed. CURLcode: 60 (SSL peer certificate or SSH "
            "remote key was not OK)");
}

}  // namespace
}  // namespace vosk::net
