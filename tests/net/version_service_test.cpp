#include "net/version_service.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "net/version_reply.h"
#include "tests/support/log_matchers.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/stored_text.h"

namespace vosk::net {
namespace {

using support::LogText;
using support::ScriptedPeer;

// Returns the version, or the lines that say why there is none.
std::string Judge(const std::string& body) {
  const auto version = ReadVersionReply(body);
  if (version) return "version " + *version;
  std::string lines;
  for (const std::string& line : version.error()) lines += line + "\n";
  return lines;
}

TEST(VersionReply, IsAcceptedWithResult0AndAVersionOnly) {
  const std::string no_result = "FetchVersion: JSON response missing 'result: 0'.\n";
  const std::string no_version = "FetchVersion: JSON response missing 'version' string.\n";
  const auto unreadable = [](const std::string& why) {
    return "FetchVersion: Failed to parse JSON response. Error: " + why + "\n";
  };
  const std::string terminated = "Terminate parsing due to Handler error. at offset ";
  const std::pair<std::string, std::string> rows[] = {
      {R"({"result":0,"version":"3.4.1"})", "version 3.4.1"},
      {R"( {"more":[{}],"version":" soon\u00e9 ","result":-0} )", "version  soon\xc3\xa9 "},
      {R"({"result":0,"version":""})", "version "},
      {R"({"result":0,"version":"\u001b[2J3.4.1\n"})", "version \uFFFD[2J3.4.1\uFFFD"},
      {R"({"result":"0","version":"1.2.3"})", no_result},
      {R"({"result":0.0,"version":"1.2.3"})", no_result},
      {R"({"version":"1.2.3"})", no_result},
      {R"({"result":7,"errorDescription":7})", no_result},
      {R"(["result",0])", no_result},
      {R"({"result":0,"version":3.4})", no_version},
      {R"({"result":0,"version":null})", no_version},
      {"", unreadable("The document is empty. at offset 0")},
      {R"({"result":0}{)",
       unreadable("The document root must not be followed by other values. at offset 12")},
      // This is deeper than the parser's stack can bear.
      {std::string(1'000'000, '['), unreadable(terminated + "257")},
      {std::string(256, '[') + std::string(256, ']'), no_result},
  };
  for (const auto& [body, judgement] : rows)
    EXPECT_EQ(Judge(body), judgement) << body.substr(0, 80);
}

class VersionServiceTest : public testing::Test {
 protected:
  void Fetch() {
    peer_.Run([this] {
      HttpVersionService service(peer_.Url() + "api/getVersion", log_.Sink(), patience_);
      version_ = service.FetchVersion();
      return !version_.empty();
    });
    EXPECT_EQ(peer_.Expect("GET /api/getVersion").Header("User-Agent"), "VELDRAN-VOSK/3.3");
  }
  // Returns the version, and what was logged after the first line. Long lines are cut.
  std::string Ending() {
    const bool done = peer_.Result();
    const LogText lines = log_.Lines();
    EXPECT_EQ(lines.at(seen_lines_),
              "[INFO] Checking for latest version from API: " + peer_.Url() + "api/getVersion");
    std::string text = done ? "  version: " + version_ + '\n' : "  none\n";
    while (++seen_lines_ < lines.size()) {
      std::string line = lines[seen_lines_];
      if (line.size() > 200)
        line.replace(60, line.size() - 100, fmt::format("...{} bytes...", line.size() - 100));
      text += "  " + line + '\n';
    }
    return text;
  }

  support::CheckedHost host_;
  support::LogRecorder log_{host_};
  std::size_t seen_lines_ = 0;
  VersionServicePatience patience_;
  ScriptedPeer peer_;
  std::string version_;
};

// {"result":0,"version":"3.4.1"}, compressed by gzip.
const std::string kZipped(
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xab\x56\x2a\x4a\x2d\x2e\xcd\x29\x51\xb2\x32\xd0\x51"
    "\x2a\x4b\x2d\x2a\xce\xcc\xcf\x53\xb2\x52\x32\xd6\x33\xd1\x33\x54\xaa\x05\x00\xc0\xc3\xc6\x2d"
    "\x1e\x00\x00\x00",
    50);

TEST_F(VersionServiceTest, GivesTheVersionOrSaysWhyThereIsNone) {
  const auto answer = [](const std::string& status, const std::string& body,
                         const std::vector<std::string>& headers = {}) {
    return [=](ScriptedPeer& peer) { peer.Answer(status, headers, body); };
  };
  const auto redirect = [](int times, const std::string& then) {
    return [=](ScriptedPeer& peer) {
      for (int n = 0; n < times; ++n) {
        peer.Answer("302 Found", {"Location: /elsewhere"});
        peer.Expect("GET /elsewhere");
      }
      peer.Answer(then, {"Location: /elsewhere"}, R"({"result":0,"version":" 3.4.1 "})");
    };
  };
  const std::vector<std::string> gzip = {"Content-Encoding: gzip"};
  const std::string refusal = R"({"result":7,"errorDescription":"no \u001b[2Jproduct"})";
  const std::string longest = "<html>" + std::string(4'090, 'x');
  const std::pair<std::string, std::function<void(ScriptedPeer&)>> rows[] = {
      {"redirected", redirect(30, "200 OK")},
      {"redirected in a circle", redirect(30, "302 Found")},
      {"redirected to another protocol", answer("302 Found", "", {"Location: ftp://127.0.0.1:1/"})},
      {"gzip", answer("200 OK", kZipped, gzip)},
      {"broken gzip", answer("200 OK", std::string(kZipped).replace(20, 4, 4, '\xff'), gzip)},
      {"404 with JSON", answer("404 Not Found", R"({"result":0,"version":"3.4.1"})")},
      {"another success", answer("204 No Content", "")},
      {"a long page", answer("500 Broken", longest)},
      {"a longer one", answer("500 Broken", longest + "x")},
      {"a page", answer("200 OK", "<html>\x1b[2J")},
      {"refused", answer("200 OK", refusal)},
      {"more than there is memory for", answer("200 OK", std::string(5'000'000, ' '))},
      {"no answer", [](ScriptedPeer& peer) { peer.Drop(); }},
      {"no answer for a second", [](ScriptedPeer&) {}},
  };
  EXPECT_EQ(patience_.connect_seconds, 5);
  EXPECT_EQ(patience_.seconds_in_all, 15);
  std::string text;
  for (const auto& [name, act] : rows) {
    SCOPED_TRACE(name);
    if (name == "no answer for a second") patience_.seconds_in_all = 1;
    Fetch();
    act(peer_);
    text += name + '\n' + Ending();
    peer_.Drop();
  }
  support::ExpectStoredText("net/version_service.txt", text);
}

TEST_F(VersionServiceTest, RefusesAnUnknownCertificate) {
  const support::UnknownTlsServer server;
  EXPECT_EQ(HttpVersionService(server.Url(), log_.Sink()).FetchVersion(), "");
  EXPECT_EQ(log_.Lines().back(),
            "[ERROR] FetchVersion: Network request failed. CURLcode: 60 (SSL peer certificate or "
            "SSH remote key was not OK)");
}

}  // namespace
}  // namespace vosk::net
