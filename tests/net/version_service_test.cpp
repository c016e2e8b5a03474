#include "net/version_service.h"

#include <gtest/gtest.h>

#include "net/version_reply.h"
#include "tests/support/log_matchers.h"
#include "tests/support/scripted_peer.h"

namespace vosk::net {
namespace {

using support::LogIs;
using support::LogText;
using support::ScriptedPeer;
using testing::HasSubstr;

// The version, or the lines that say why there is none.
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
      {R"({"result":"0","version":"1.2.3"})", no_result},
      {R"({"result":0.0,"version":"1.2.3"})", no_result},
      {R"({"result":4294967296,"version":"1.2.3"})", no_result},
      {R"({"result":false,"version":"1.2.3"})", no_result},
      {R"({"version":"1.2.3"})", no_result},
      {R"({"result":7,"errorDescription":"no such product"})",
       no_result + "FetchVersion: API Error: no such product\n"},
      {R"({"result":7,"errorDescription":7})", no_result},
      {R"(["result",0])", no_result},
      {R"("0")", no_result},
      {R"({"result":0,"version":3.4})", no_version},
      {R"({"result":0,"Version":"1.2.3"})", no_version},
      {R"({"result":0,"version":null})", no_version},
      {"", unreadable("The document is empty. at offset 0")},
      {"<html></html>", unreadable("Invalid value. at offset 0")},
      {R"({"result":0,)", unreadable("Missing a name for object member. at offset 12")},
      {R"({"result":0}{)",
       unreadable("The document root must not be followed by other values. at offset 12")},
      // As deep as the parser's stack would not stand.
      {std::string(1'000'000, '['), unreadable(terminated + "257")},
      {std::string(256, '[') + std::string(256, ']'), no_result},
  };
  for (const auto& [body, judgement] : rows)
    EXPECT_EQ(Judge(body), judgement) << body.substr(0, 80);
}

class VersionServiceTest : public testing::Test {
 protected:
  void Fetch(VersionServicePatience patience = {}) {
    peer_.Run([this, patience] {
      HttpVersionService service(peer_.Url() + "api/getVersion", log_.Sink(), patience);
      version_ = service.FetchVersion();
      return !version_.empty();
    });
  }
  // What was logged by this fetch, without the line that announces it.
  LogText NewLines() {
    const LogText lines = log_.Lines();
    EXPECT_EQ(lines.at(seen_lines_),
              "[INFO] Checking for latest version from API: " + peer_.Url() + "api/getVersion");
    const auto first = lines.begin() + static_cast<std::ptrdiff_t>(seen_lines_) + 1;
    seen_lines_ = lines.size();
    return {first, lines.end()};
  }

  support::CheckedHost host_;
  support::LogRecorder log_{host_};
  std::size_t seen_lines_ = 0;
  ScriptedPeer peer_;
  std::string version_;
};

// {"result":0,"version":"3.4.1"}, compressed by gzip.
const std::string kZipped(
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xab\x56\x2a\x4a\x2d\x2e\xcd\x29\x51\xb2\x32\xd0\x51"
    "\x2a\x4b\x2d\x2a\xce\xcc\xcf\x53\xb2\x52\x32\xd6\x33\xd1\x33\x54\xaa\x05\x00\xc0\xc3\xc6\x2d"
    "\x1e\x00\x00\x00",
    50);

TEST_F(VersionServiceTest, AsksOnceAndReportsTheVersion) {
  Fetch();
  const auto request = peer_.Expect("GET /api/getVersion");
  EXPECT_EQ(request.Header("User-Agent"), "VELDRAN-VOSK/3.3");
  EXPECT_THAT(request.Header("Accept-Encoding").value_or(""), HasSubstr("gzip"));
  peer_.Answer("302 Found", {"Location: /elsewhere"});
  peer_.Expect("GET /elsewhere");
  peer_.Answer("200 OK", {}, R"({"result":0,"version":" 3.4.1 "})");
  EXPECT_TRUE(peer_.Result());
  EXPECT_EQ(version_, " 3.4.1 ");
  EXPECT_THAT(NewLines(), LogIs({"[INFO] FetchVersion: Latest version reported by API:  3.4.1 "}));
}

TEST_F(VersionServiceTest, ReadsCompressedReplies) {
  Fetch();
  peer_.Expect("GET /api/getVersion");
  peer_.Answer("200 OK", {"Content-Encoding: gzip"}, kZipped);
  EXPECT_TRUE(peer_.Result());
  EXPECT_EQ(version_, "3.4.1");
}

TEST_F(VersionServiceTest, SaysWhyThereIsNoVersion) {
  struct Row {
    std::string name;
    std::function<void(ScriptedPeer&)> answer;
    LogText log;
  };
  const std::string no_request = "[ERROR] FetchVersion: Network request failed. CURLcode: ";
  const std::string no_status = "[ERROR] FetchVersion: API request failed. HTTP Status: ";
  const std::string shown = "[ERROR] FetchVersion: Response Body: ";
  const std::string refusal = R"({"result":7,"errorDescription":"no such product"})";
  const std::string page = "<html>" + std::string(100'000, ' ');
  const Row rows[] = {
      {"404 with JSON",
       [&](ScriptedPeer& peer) { peer.Answer("404 Not Found", {}, R"({"result":0})"); },
       {no_status + "404", shown + R"({"result":0})"}},
      {"another success",
       [](ScriptedPeer& peer) { peer.Answer("204 No Content"); },
       {no_status + "204", shown}},
      {"a page",
       [](ScriptedPeer& peer) { peer.Answer("200 OK", {}, "<html>Log in</html>"); },
       {"[ERROR] FetchVersion: Failed to parse JSON response. Error: Invalid value. at offset 0",
        shown + "<html>Log in</html>"}},
      {"a long page",
       [&](ScriptedPeer& peer) { peer.Answer("500 Broken", {}, page); },
       {no_status + "500", shown + page.substr(0, 65'536) + "... (100006 bytes in all)"}},
      {"refused",
       [&](ScriptedPeer& peer) { peer.Answer("200 OK", {}, refusal); },
       {"[ERROR] FetchVersion: JSON response missing 'result: 0'.",
        "[ERROR] FetchVersion: API Error: no such product", shown + refusal}},
      {"broken gzip",
       [](ScriptedPeer& peer) {
         peer.Answer("200 OK", {"Content-Encoding: gzip"},
                     std::string(kZipped).replace(20, 4, 4, '\xff'));
       },
       {no_request + "61 (Unrecognized or bad HTTP Content or Transfer-Encoding)"}},
      {"more than there is memory for",
       [](ScriptedPeer& peer) { peer.Answer("200 OK", {}, std::string(5'000'000, ' ')); },
       {"[ERROR] FetchVersion: Memory allocation failed for response body",
        no_request + "23 (Failed writing received data to disk/application)"}},
      {"cut midway",
       [](ScriptedPeer& peer) {
         peer.Send("HTTP/1.1 200 OK\r\nContent-Length: 30\r\n\r\n{\"result\":0,");
         peer.Drop();
       },
       {no_request + "18 (Transferred a partial file)"}},
      {"no answer",
       [](ScriptedPeer& peer) { peer.Drop(); },
       {no_request + "52 (Server returned nothing (no headers, no data))"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Fetch();
    peer_.Expect("GET /api/getVersion");
    row.answer(peer_);
    EXPECT_FALSE(peer_.Result());
    EXPECT_THAT(NewLines(), LogIs(row.log));
    peer_.Drop();
  }
}

TEST_F(VersionServiceTest, WaitsForALimitedTimeOnly) {
  EXPECT_EQ(VersionServicePatience{}.connect_seconds, 5);
  EXPECT_EQ(VersionServicePatience{}.seconds_in_all, 15);
  Fetch({.seconds_in_all = 1});
  peer_.Expect("GET /api/getVersion");
  EXPECT_FALSE(peer_.Result());
  EXPECT_THAT(NewLines(), LogIs({"[ERROR] FetchVersion: Network request failed. CURLcode: 28 "
                                 "(Timeout was reached)"}));
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
