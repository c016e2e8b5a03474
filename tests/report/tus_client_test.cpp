// Most of it is dialogues between the client and servers, stored as texts. Each begins with "##",
// its name and the size of the report in bytes. Lines with "<" are played as the server's answers,
// each when the next request has come: a status, header lines and "=body", divided by " | "; other
// words stand for what a server does that breaks the protocol, "\e" for an escape character and
// "x*9000" for so many of that letter. All else is what came of it: the requests with ">", the log,
// and the end with "=". "~" is an answer whose request and log are of no interest.
#include "report/upload/tus_client.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <fstream>
#include <regex>

#include "tests/support/checked_host.h"
#include "tests/support/hurrying_clock.h"
#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/stored_text.h"
#include "tests/support/transcript.h"

namespace {

// The most that the network takes of one send.
std::size_t largest_send = SIZE_MAX;

}  // namespace

// libcurl's, too: a program's own function goes before the C library's.
extern "C" ssize_t send(int socket, const void* data, size_t size, int flags) {
  return sendto(socket, data, std::min(size, largest_send), flags, nullptr, 0);
}

namespace vosk::report {
namespace {

using support::LogHas;
using support::LogLacks;
using support::PeerRequest;
using support::ScriptedPeer;
using support::SimulatedHost;
using Words = std::vector<std::string>;

const std::filesystem::path kReport = "dumps/r.zip";

// The text with the server's address, which differs from run to run, replaced by a name.
std::string WithoutPort(const std::string& text) {
  static const std::regex kAddress(R"(127\.0\.0\.1:\d+)");
  return std::regex_replace(text, kAddress, "server");
}

// Bytes that differ from place to place.
std::string Bytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t at = 0; at < size; ++at) bytes[at] = static_cast<char>(at * 7 + at / 251);
  return bytes;
}

Words Split(const std::string& text, const std::string& divider) {
  Words words;
  std::size_t begin = 0;
  for (std::size_t end = 0; end != std::string::npos; begin = end + divider.size()) {
    end = text.find(divider, begin);
    words.push_back(text.substr(begin, end - begin));
  }
  return words;
}

// What an answer's short forms stand for.
std::string WrittenOut(std::string answer, const std::string& root) {
  answer = std::regex_replace(answer, std::regex("//server/"), root);
  answer = std::regex_replace(answer, std::regex(R"(\\e)"), "\x1b");
  for (std::smatch many; std::regex_search(answer, many, std::regex(R"(x\*(\d+))"));) {
    answer.replace(many.position(), many.length(), std::stoul(many[1]), 'x');
  }
  return answer;
}

// The text with many of a letter as the answers have them.
std::string Shortened(std::string text) {
  for (std::size_t at = 0; (at = text.find("xxxxx", at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_not_of('x', at), text.size());
    text.replace(at, end - at, fmt::format("x*{}", end - at));
  }
  return text;
}

void Answer(ScriptedPeer& peer, const std::string& answer) {
  const std::string root = peer.Url().substr(5);  // "//127.0.0.1:1234/"
  Words words = Split(WrittenOut(answer, root), " | ");
  const std::string status = words.front();
  if (status == "hangs up") return peer.Drop();
  words.erase(words.begin());
  if (!words.empty() && words.back() == "breaks off") {
    peer.Send("HTTP/1.1 " + status + "\r\nContent-Length: 9\r\n\r\nhalf");
    return peer.Drop();
  }
  std::string body;
  if (!words.empty() && words.back().starts_with('=')) {
    body = words.back().substr(1);
    words.pop_back();
  }
  peer.Answer(status, words, body);
}

// The request with the headers that the protocol is about, and what its body is.
std::string Describe(const PeerRequest& request, const std::string& file) {
  std::string text = "> " + request.line;
  for (const char* name : {"Tus-Resumable", "Upload-Length", "Upload-Metadata", "Upload-Offset",
                           "Content-Type", "Content-Length", "Transfer-Encoding", "User-Agent"}) {
    if (const auto value = request.Header(name)) text += fmt::format(" | {}: {}", name, *value);
  }
  if (request.body.empty()) return text + '\n';
  const auto offset = std::stoul(request.Header("Upload-Offset").value_or("0"));
  const bool right = file.compare(offset, request.body.size(), request.body) == 0;
  return text + (right ? " | with the bytes from there\n" : " | with OTHER bytes\n");
}

class Dialogue {
 public:
  explicit Dialogue(std::size_t size) : file_(Bytes(size)) {
    host_.PutFile(kReport, file_);
    log_.Sink().SetRedrawHook([this] { Look(); });
    peer_.Run([this] { return client_.TusUpload(kReport); });
  }

  // Awaits a request and plays the answer ("< 200 OK", "~ 200 OK").
  void Play(const std::string& answer) {
    const auto request = peer_.Await();
    const std::string logged = NewLog();
    if (answer[0] == '<') text_ += logged;
    if (!request) return;
    if (answer[0] == '<') text_ += Describe(*request, file_);
    text_ += answer + '\n';
    Answer(peer_, answer.substr(2));
  }

  // What was said, and how it ended.
  std::string End() {
    const bool sent = peer_.Result();
    text_ += NewLog();
    const bool whole = host_.ReadFile(kReport) == file_;
    const char* file = whole ? "kept" : std::filesystem::exists(kReport) ? "CHANGED" : "gone";
    text_ += fmt::format(
        "= {}, file {}, shown:{}, {} s, then {} '{}'\n", sent ? "sent" : "not sent", file, shown_,
        host_.clock.Elapsed().count() / 1000, progress_.Percentage(), progress_.ActivityLabel());
    return WithoutPort(text_);
  }

 private:
  void Look() {
    if (progress_.ActivityLabel().empty()) return;
    const std::string now =
        fmt::format(" {} {:.1f}", progress_.ActivityLabel(), progress_.Percentage());
    if (!shown_.ends_with(now)) shown_ += now;
  }
  // What was logged since the last call.
  std::string NewLog() {
    std::string text;
    const support::LogText lines = log_.Lines();
    for (; seen_lines_ < lines.size(); ++seen_lines_) text += lines[seen_lines_] + '\n';
    std::erase(text, '\r');
    return Shortened(text);
  }

  std::string file_;
  std::string text_;
  std::string shown_;
  std::size_t seen_lines_ = 0;
  support::CheckedHost host_;
  support::LogRecorder log_{host_};
  console::TransferProgress progress_;
  ScriptedPeer peer_;
  TusClient client_{peer_.Url(), host_.files, host_.clock, log_.Sink(), progress_};
};

// Plays the answers of a stored text again.
void ExpectDialogues(const std::string& file, std::size_t dialogues) {
  std::ifstream stored(std::filesystem::path(VOSK_TESTS_DIRECTORY) / file);
  std::string text;
  std::unique_ptr<Dialogue> dialogue;
  for (std::string line; std::getline(stored, line);) {
    if (line.starts_with("## ")) {
      if (dialogue) text += dialogue->End() + '\n';
      dialogue.reset();  // one host at a time
      dialogue = std::make_unique<Dialogue>(std::stoul(line.substr(line.rfind('(') + 1)));
      text += line + '\n';
      --dialogues;
    } else if (line.starts_with("< ") || line.starts_with("~ ")) {
      dialogue->Play(line);
    }
  }
  ASSERT_EQ(dialogues, 0u) << "left in " << file;
  text += dialogue->End();
  dialogue.reset();
  support::ExpectStoredText(file, text);
}

TEST(TusDialogues, BeforeAnythingIsSent) {
  ExpectDialogues("report/tus_dialogues/beginnings.txt", 21);
}

TEST(TusDialogues, ChunkByChunk) {
  ExpectDialogues("report/tus_dialogues/chunks.txt", 14);
}

// Serves one client to its end by the rules and gives what it has received.
std::string ServeWhole(ScriptedPeer& peer) {
  std::string held;
  while (const auto request = peer.Await()) {
    if (request->line.starts_with("PATCH")) held += request->body;
    const std::string offset = "Upload-Offset: " + std::to_string(held.size());
    if (request->line == "POST /") {
      peer.Answer("201 Created", {"Location: /files/1"});
    } else if (request->line.starts_with("GET")) {
      peer.Answer("405 Method Not Allowed");
    } else {
      peer.Answer(request->line.starts_with("HEAD") ? "200 OK" : "204 No Content", {offset});
    }
  }
  return held;
}

// Uploads, and says what came of it.
std::string Upload(SimulatedHost& host, console::LogSink& log, platform::Files& files) {
  console::TransferProgress progress;
  ScriptedPeer peer;
  TusClient client(peer.Url(), files, host.clock, log, progress);
  peer.Run([&] { return client.TusUpload(kReport); });
  const std::string held = ServeWhole(peer);
  const bool sent = peer.Result();
  host.PutFile(host.LogFile(), WithoutPort(host.ReadFile(host.LogFile())));
  return fmt::format("sent: {}, the server holds '{}', the file is {}, display: {}", sent, held,
                     std::filesystem::exists(kReport) ? host.ReadFile(kReport) : "gone",
                     progress.Percentage());
}

TEST(TusFaults, OfAReport) {
  support::ExpectFaultTranscript(
      "report/tus_dialogues/upload_faults.txt",
      {.arrange = [](SimulatedHost& host) { host.PutFile(kReport, "report"); },
       .act = [](SimulatedHost& host,
                 console::LogSink& log) { return Upload(host, log, host.files); }});
}

TEST(TusFaults, OfAnEmptyReport) {
  support::ExpectFaultTranscript(
      "report/tus_dialogues/empty_report_faults.txt",
      {.arrange = [](SimulatedHost& host) { host.PutFile(kReport, ""); },
       .act = [](SimulatedHost& host,
                 console::LogSink& log) { return Upload(host, log, host.files); }});
}

class TusFailures : public testing::Test {
 protected:
  support::CheckedHost host_;
  support::MeddlingFiles files_{host_.files};
  support::LogRecorder log_{host_};
};

TEST_F(TusFailures, FilesThatDisappear) {
  Upload(host_, log_.Sink(), files_);
  for (const char* bytes : {"", "report"}) {
    host_.PutFile(kReport, bytes);
    files_.before_remove = [](const std::filesystem::path& path) { std::filesystem::remove(path); };
    Upload(host_, log_.Sink(), files_);
  }
  files_.before_exists = [](const std::filesystem::path&) {
    throw std::runtime_error("no memory");
  };
  Upload(host_, log_.Sink(), files_);
  EXPECT_THAT(log_.Lines(),
              LogHas({"[ERROR] File does not exist for upload: dumps/r.zip",
                      "[WARN] Failed to delete zero-byte file: dumps/r.zip",
                      "[WARN] Failed to delete local file after successful upload: dumps/r.zip",
                      "[ERROR] Exception during TUS upload of 'dumps/r.zip': no memory"}));
}

// libcurl fills its buffer up again while a little is left in it, and then comes past the chunk's
// end. Such a chunk takes its time, too.
TEST_F(TusFailures, ASlowNetworkGetsTheChunkAndNoMoreAndTheBarMoves) {
  const std::string file = Bytes(6'000'000);
  host_.PutFile(kReport, file);
  console::TransferProgress progress;
  int moves = 0;
  log_.Sink().SetRedrawHook([&] {
    // Between the first chunk's beginning and its end.
    if (progress.Percentage() > 1 && progress.Percentage() < 87) ++moves;
  });
  support::HurryingClock clock(host_.choke);
  clock.step = std::chrono::milliseconds(20);
  ScriptedPeer peer;
  TusClient client(peer.Url(), files_, clock, log_.Sink(), progress);
  largest_send = 16'383;
  peer.Run([&] { return client.TusUpload(kReport); });
  EXPECT_TRUE(ServeWhole(peer) == file);
  EXPECT_TRUE(peer.Result());
  largest_send = SIZE_MAX;
  EXPECT_GE(moves, 3);
  EXPECT_THAT(log_.Lines(), LogLacks("mismatch"));
}

TEST_F(TusFailures, AServerThatLeadsNowhereEndsTheUpload) {
  struct Row {
    Words answers;  // the last one for ever
    std::size_t requests;
    std::string end;
  };
  const std::string circle = "Number of redirects hit maximum amount";
  const Row rows[] = {
      {{"201 Created", "200 OK", "204 No Content"},
       102,
       "[ERROR] Server offset did not advance in 100 answers to TUS PATCH. Aborting upload."},
      {{"302 Found"}, 31, "[ERROR] TUS POST request failed. CURLcode: 47 (" + circle},
      {{"201 Created", "302 Found"},
       32,
       "[ERROR] TUS HEAD request failed. CURLcode: 47 (" + circle},
  };
  for (const auto& [answers, wanted, end] : rows) {
    host_.PutFile(kReport, "report");
    console::TransferProgress progress;
    ScriptedPeer peer;
    TusClient client(peer.Url(), host_.files, host_.clock, log_.Sink(), progress);
    peer.Run([&] { return client.TusUpload(kReport); });
    std::size_t requests = 0;
    for (; peer.Await(); ++requests) {
      peer.Answer(answers[std::min(requests, answers.size() - 1)],
                  {"Location: /files/1", "Upload-Offset: 0"});
    }
    EXPECT_FALSE(peer.Result());
    EXPECT_EQ(requests, wanted) << end;
    EXPECT_THAT(log_.Lines(), testing::Contains(testing::StartsWith(end)));
  }
}

TEST_F(TusFailures, AnUnknownCertificateIsRefused) {
  const support::UnknownTlsServer server;
  console::TransferProgress progress;
  TusClient client(server.Url(), host_.files, host_.clock, log_.Sink(), progress);
  host_.PutFile(kReport, "report");
  EXPECT_FALSE(client.TusUpload(kReport));
  EXPECT_THAT(log_.Lines(),
              LogHas({"[ERROR] TUS POST request failed. CURLcode: 60 (SSL peer certificate or SSH "
                      "remote key was not OK), HTTP Status: 0"}));
}

}  // namespace
}  // namespace vosk::report
