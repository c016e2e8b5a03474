#include "report/tus_client.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "report/tus_protocol.h"
#include "tests/report/meddling_files.h"
#include "tests/report/scripted_peer.h"
#include "tests/support/log_recorder.h"
#include "tests/support/simulated_host.h"

namespace vosk::report {
namespace {

namespace fs = std::filesystem;
using support::LogHas;
using support::LogIs;
using support::LogText;
using support::SimulatedHost;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

const fs::path kReport = "dumps/r.zip";

std::string Bytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t at = 0; at < size; ++at) bytes[at] = static_cast<char>(at * 7 + at / 251);
  return bytes;
}

// One upload, of which the test plays the server.
class TusClientTest : public testing::Test {
 protected:
  void Upload(const std::string& bytes) {
    host_.PutFile(kReport, bytes);
    peer_.Run([this] { return client_.TusUpload(kReport); });
  }
  void AnswerCreation() {
    peer_.Expect("POST /");
    peer_.Answer("201 Created", {"Location: /files/1"});
  }
  void AnswerOffset(const std::string& value) {
    peer_.Expect("HEAD /files/1");
    peer_.Answer("200 OK", {"Upload-Offset: " + value});
  }
  // Up to the first PATCH.
  void UploadFrom(const std::string& offset, const std::string& bytes) {
    Upload(bytes);
    AnswerCreation();
    AnswerOffset(offset);
  }
  void Accept(const std::string& offset) {
    peer_.Answer("204 No Content", {"Upload-Offset: " + offset});
  }
  // The upload ended well, its file is gone and the display hidden.
  void ExpectDone() {
    EXPECT_TRUE(peer_.Result());
    EXPECT_FALSE(fs::exists(kReport));
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }
  // The upload failed and its file is as it was.
  void ExpectKept(const std::string& bytes) {
    EXPECT_FALSE(peer_.Result());
    EXPECT_EQ(SimulatedHost::ReadFile(kReport), bytes);
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }
  [[nodiscard]] std::string ResourceUrl() const { return peer_.Url() + "files/1"; }

  SimulatedHost host_;
  MeddlingFiles files_{host_.files};
  support::LogRecorder log_{host_};
  console::TransferProgress progress_;
  ScriptedPeer peer_;
  TusClient client_{peer_.Url(), files_, host_.clock, log_.Sink(), progress_};
};

TEST_F(TusClientTest, SendsAFileInChunks) {
  const std::string bytes = Bytes(5'242'881);
  std::vector<std::pair<std::string, double>> shown;
  log_.Sink().SetRedrawHook([&] {
    if (progress_.ActivityLabel() == "Uploading") {
      shown.emplace_back(progress_.ActivityLabel(), progress_.Percentage());
    }
  });
  Upload(bytes);

  const PeerRequest creation = peer_.Expect("POST /");
  EXPECT_EQ(creation.Header("Tus-Resumable"), "1.0.0");
  EXPECT_EQ(creation.Header("Upload-Length"), "5242881");
  EXPECT_EQ(creation.Header("Upload-Metadata"), "filename ci56aXA=,filetype YXBwbGljYXRpb24vemlw");
  EXPECT_EQ(creation.Header("Content-Length"), "0");
  EXPECT_EQ(creation.Header("User-Agent"), std::nullopt);
  peer_.Answer("201 Created", {"Location: /files/1"});

  const PeerRequest query = peer_.Expect("HEAD /files/1");
  EXPECT_EQ(query.Header("Tus-Resumable"), "1.0.0");
  EXPECT_EQ(query.Header("Upload-Length"), std::nullopt);
  peer_.Answer("200 OK", {"Upload-Offset: 0"});

  const PeerRequest first = peer_.Expect("PATCH /files/1");
  EXPECT_EQ(first.Header("Tus-Resumable"), "1.0.0");
  EXPECT_EQ(first.Header("Upload-Offset"), "0");
  EXPECT_EQ(first.Header("Content-Type"), "application/offset+octet-stream");
  EXPECT_EQ(first.Header("Content-Length"), "5242880");
  EXPECT_TRUE(first.body == bytes.substr(0, 5'242'880));
  Accept("5242880");

  const PeerRequest second = peer_.Expect("PATCH /files/1");
  EXPECT_EQ(second.Header("Upload-Offset"), "5242880");
  EXPECT_EQ(second.Header("Content-Length"), "1");
  EXPECT_TRUE(second.body == bytes.substr(5'242'880));
  Accept("5242881");
  ExpectDone();

  EXPECT_THAT(log_.Lines(),
              LogIs({"[INFO] Starting TUS upload for: dumps/r.zip",
                     "[INFO] TUS Step 1: Sending POST to create upload resource...",
                     "[INFO] TUS Step 1: Resource created. Upload URL: " + ResourceUrl(),
                     "[INFO] TUS: Sending HEAD request to get offset for: " + ResourceUrl(),
                     "[INFO] TUS HEAD: Found existing Upload-Offset: 0",
                     "[INFO] TUS Step 3: Starting chunked PATCH uploads from offset 0...",
                     "[INFO] PATCH Attempt 1/4: Offset=0, ChunkSize=5242880",
                     "[INFO] Server offset confirmed: 5242880",
                     "[PROG] Upload Progress: 5242880 / 5242881 bytes (100.0%)",
                     "[INFO] PATCH Attempt 1/4: Offset=5242880, ChunkSize=1",
                     "[INFO] Server offset confirmed: 5242881",
                     "[PROG] Upload Progress: 5242881 / 5242881 bytes (100.0%)",
                     "[INFO] TUS Upload successfully completed for: dumps/r.zip",
                     "[INFO] Deleted local file after successful upload: dumps/r.zip"}));
  // The display runs up to 99.9 and no further.
  EXPECT_THAT(shown, Contains(testing::Pair("Uploading", 99.9)));
  EXPECT_THAT(shown, testing::Each(testing::Pair(testing::_, testing::Le(99.9))));
}

TEST_F(TusClientTest, SendsAFileOfOneChunkInOneRequest) {
  UploadFrom("0", Bytes(5'242'880));
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body.size(), 5'242'880u);
  Accept("5242880");
  ExpectDone();
}

TEST_F(TusClientTest, FailedCreationKeepsTheFile) {
  struct Row {
    std::string name;
    std::function<void(ScriptedPeer&)> answer;
    LogText log;
  };
  const std::string failed = "[ERROR] TUS POST request failed. CURLcode: ";
  const Row rows[] = {
      {"another success",
       [](ScriptedPeer& peer) { peer.Answer("200 OK", {"X-Why: not"}, "no room"); },
       {failed + "0 (No error), HTTP Status: 200", "[ERROR] Response Body: no room",
        "[ERROR] Response Headers:", "HTTP/1.1 200 OK\r", "X-Why: not\r"}},
      {"500",
       [](ScriptedPeer& peer) { peer.Answer("500 Broken"); },
       {failed + "0 (No error), HTTP Status: 500", "[ERROR] Response Body: "}},
      {"no location",
       [](ScriptedPeer& peer) { peer.Answer("201 Created"); },
       {"[ERROR] TUS POST succeeded (HTTP 201), but 'Location' header was missing in the response.",
        "[ERROR] Response Headers:", "HTTP/1.1 201 Created\r"}},
      {"no answer",
       [](ScriptedPeer& peer) { peer.Drop(); },
       {failed + "52 (Server returned nothing (no headers, no data)), HTTP Status: 0"}},
      {"no HTTP",
       [](ScriptedPeer& peer) { peer.Send("what?\r\n\r\n"); },
       {failed + "1 (Unsupported protocol), HTTP Status: 0"}},
      {"a broken answer",
       [](ScriptedPeer& peer) {
         peer.Send("HTTP/1.1 201 Created\r\nContent-Length: 9\r\n\r\nhalf");
         peer.Drop();
       },
       {failed + "18 (Transferred a partial file), HTTP Status: 201",
        "[ERROR] Response Body: half"}},
      {"a body of 20 MB",
       [](ScriptedPeer& peer) { peer.Answer("201 Created", {"Location: /a"}, Bytes(20'000'000)); },
       {failed + "23 (Failed writing received data to disk/application), HTTP Status: 201"}},
      {"redirected elsewhere",
       [](ScriptedPeer& peer) {
         peer.Answer("302 Found", {"Location: /elsewhere"});
         peer.Expect("GET /elsewhere");
         peer.Answer("200 OK");
       },
       {failed + "0 (No error), HTTP Status: 200"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Upload("report");
    peer_.Expect("POST /");
    row.answer(peer_);
    ExpectKept("report");
    EXPECT_THAT(log_.Lines(), LogHas(row.log));
    peer_.Drop();
  }
}

// libcurl may stop at a limit of its own before ours is reached.
TEST_F(TusClientTest, EndlessHeadersEndTheUpload) {
  const auto flood = [this] {
    const std::string line = "X-Filler: " + std::string(1000, 'x') + "\r\n";
    peer_.Send("HTTP/1.1 200 OK\r\n");
    for (int n = 0; n < 100'000 && peer_.Send(line); ++n) {
    }
    peer_.Drop();
  };
  Upload("report");
  peer_.Expect("POST /");
  flood();
  ExpectKept("report");
  EXPECT_THAT(log_.Lines(), Contains(HasSubstr("[ERROR] TUS POST request failed. CURLcode: ")));

  Upload("report");
  AnswerCreation();
  peer_.Expect("HEAD /files/1");
  flood();
  ExpectKept("report");
  EXPECT_THAT(log_.Lines(), Contains(HasSubstr("[ERROR] TUS HEAD request failed. CURLcode: ")));
}

TEST_F(TusClientTest, ServerThatIsDownKeepsTheFile) {
  peer_.GoDown();
  Upload("report");
  ExpectKept("report");
  EXPECT_THAT(log_.Lines(),
              LogHas({"[ERROR] TUS POST request failed. CURLcode: 7 (Couldn't connect "
                      "to server), HTTP Status: 0"}));
}

TEST_F(TusClientTest, ResolvesTheLocation) {
  const std::string authority = peer_.Url().substr(0, peer_.Url().size() - 1);
  const std::pair<std::string, std::string> rows[] = {
      {"/files/2", "HEAD /files/2"},
      {"files/3", "HEAD /files/3"},
      {"?id=4", "HEAD /?id=4"},
      {"/with space", "HEAD /with%20space"},
      {authority + "/files/5", "HEAD /files/5"},
      {authority.substr(5) + "/files/6", "HEAD /files/6"},
  };
  for (const auto& [location, line] : rows) {
    SCOPED_TRACE(location);
    Upload("report");
    peer_.Expect("POST /");
    peer_.Answer("201 Created", {"Location: " + location});
    peer_.Expect(line);
    peer_.Answer("200 OK", {"Upload-Offset: 6"});
    ExpectDone();
  }
}

TEST_F(TusClientTest, FirstOffsetDecidesWhatIsSent) {
  struct Row {
    std::string status;
    std::vector<std::string> headers;
    LogText log;
    std::string sent;  // "": nothing, the upload has failed; "done": nothing, it is complete
  };
  const std::string undetermined =
      "[ERROR] Failed to determine initial upload offset via HEAD request.";
  const auto missing = [](int status) {
    return fmt::format(
        "[INFO] TUS HEAD: Resource not found or access denied (HTTP {}). Assuming offset is 0.",
        status);
  };
  const Row rows[] = {
      {"204 No Content",
       {"upload-offset: 2"},
       {"[INFO] TUS HEAD: Found existing Upload-Offset: 2"},
       "port"},
      {"200 OK",
       {"Upload-Length: 6"},
       {"[WARN] TUS HEAD: Upload-Offset header missing, but Upload-Length found. Assuming offset "
        "is "
        "0."},
       "report"},
      {"403 Forbidden", {}, {missing(403)}, "report"},
      {"404 Not Found", {"Upload-Offset: 3"}, {missing(404)}, "report"},
      {"410 Gone", {}, {missing(410)}, "report"},
      {"200 OK",
       {"Upload-Offset: 6"},
       {"[INFO] Server offset (6) indicates upload is already complete (File size: 6).",
        "[INFO] Deleted local file that was already uploaded: dumps/r.zip"},
       "done"},
      {"200 OK",
       {"Upload-Offset: 7"},
       {"[INFO] Server offset (7) indicates upload is already complete (File size: 6)."},
       "done"},
      {"200 OK",
       {"Upload-Offset: -1"},
       {"[INFO] TUS HEAD: Found existing Upload-Offset: -1", undetermined},
       ""},
      {"200 OK",
       {"X-Nothing: 1"},
       {"[ERROR] TUS HEAD: Received HTTP 200 but required 'Upload-Offset' (or 'Upload-Length') "
        "header is missing.",
        "[ERROR] Headers received:", "X-Nothing: 1\r", undetermined},
       ""},
      {"200 OK",
       {"Upload-Offset: soon"},
       {"[ERROR] TUS HEAD: Invalid argument parsing Upload-Offset 'soon': Not a number",
        undetermined},
       ""},
      {"200 OK",
       {"Upload-Offset: 1 of 6"},
       {"[ERROR] TUS HEAD: Invalid argument parsing Upload-Offset '1 of 6': Invalid characters "
        "after offset number",
        undetermined},
       ""},
      {"200 OK",
       {"Upload-Offset: 99999999999999999999"},
       {"[ERROR] TUS HEAD: Out of range parsing Upload-Offset '99999999999999999999': Number does "
        "not fit into 64 bits",
        undetermined},
       ""},
      {"500 Broken",
       {"X-Why: disk"},
       {"[ERROR] TUS HEAD: Unexpected HTTP status code: 500",
        "[ERROR] Response Body: ", "[ERROR] Response Headers:", "X-Why: disk\r", undetermined},
       ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.log.front());
    Upload("report");
    AnswerCreation();
    peer_.Expect("HEAD /files/1");
    peer_.Answer(row.status, row.headers);
    if (row.sent.empty()) {
      ExpectKept("report");
    } else {
      if (row.sent != "done") {
        EXPECT_EQ(peer_.Expect("PATCH /files/1").body, row.sent);
        Accept("6");
      }
      ExpectDone();
    }
    EXPECT_THAT(log_.Lines(), LogHas(row.log));
  }
}

TEST_F(TusClientTest, TrustsTheServersOffset) {
  UploadFrom("0", "0123456789");
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body, "0123456789");
  Accept("4");
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body, "456789");
  Accept("2");
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body, "23456789");
  Accept("11");
  ExpectDone();
  EXPECT_THAT(
      log_.Lines(),
      LogHas({"[WARN] Server offset mismatch after PATCH! Expected: 10, Server returned: 4. "
              "Trusting server offset.",
              "[WARN]  -> Bytes read by callback for chunk: 10, Bytes reported sent by CURL: "
              "10",
              "[PROG] Upload Progress: 4 / 10 bytes (40.0%)",
              "[PROG] Upload Progress: 11 / 10 bytes (110.0%)",
              "[INFO] TUS Upload successfully completed for: dumps/r.zip"}));
}

TEST_F(TusClientTest, ServerThatNeverAdvancesEndsTheUpload) {
  UploadFrom("0", "report");
  int requests = 0;
  while (const auto request = peer_.Await()) {
    ++requests;
    Accept("0");
  }
  ExpectKept("report");
  EXPECT_EQ(requests, 100);
  EXPECT_THAT(log_.Lines(), LogHas({"[ERROR] Server offset did not advance in 100 answers to TUS "
                                    "PATCH. Aborting upload."}));
}

TEST_F(TusClientTest, FinalAnswersToAChunkEndTheUpload) {
  struct Row {
    std::string status;
    std::vector<std::string> headers;
    LogText log;
  };
  const Row rows[] = {
      {"204 No Content",
       {},
       {"[ERROR] TUS PATCH succeeded (HTTP 204), but required 'Upload-Offset' header is missing in "
        "response. Aborting."}},
      {"204 No Content",
       {"Upload-Offset: six"},
       {"[ERROR] Failed to parse 'Upload-Offset' header ('six') after successful PATCH: Not a "
        "number. Aborting."}},
      {"204 No Content",
       {"Upload-Offset: 6 "
        "bytes"},
       {"[ERROR] Failed to parse 'Upload-Offset' header ('6 bytes') after successful PATCH: "
        "Invalid "
        "characters after offset number. Aborting."}},
      {"204 No Content",
       {"Upload-Offset: -5"},
       {"[PROG] Upload Progress: -5 / 6 bytes (-83.3%)",
        "[ERROR] Failed to seek to offset -5 in file 'dumps/r.zip' before attempt 1"}},
      {"200 OK",
       {"Upload-Offset: 6"},
       {"[ERROR] TUS PATCH failed (Attempt 1/4). CURLcode: 0 (No error), HTTP Status: 200",
        "[ERROR] Response Body: why",
        "[ERROR] Non-retriable HTTP error (200) received during TUS PATCH. Aborting upload."}},
      {"400 Bad Request",
       {},
       {"[ERROR] TUS PATCH failed (Attempt 1/4). CURLcode: 0 (No error), HTTP Status: 400",
        "[ERROR] Response Body: why",
        "[ERROR] Non-retriable HTTP error (400) received during TUS PATCH. Aborting upload."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.log.front());
    UploadFrom("0", "report");
    peer_.Expect("PATCH /files/1");
    peer_.Answer(row.status, row.headers, row.status.starts_with("204") ? "" : "why");
    ExpectKept("report");
    EXPECT_THAT(log_.Lines(), LogHas(row.log));
  }
  EXPECT_EQ(host_.clock.Elapsed(), std::chrono::seconds(0));
}

// What goes over the wire after an offset query: the chunk's headers, but as a plain GET without
// the chunk. That is how the handle is left.
TEST_F(TusClientTest, RetriesGoOutAsPlainRequests) {
  UploadFrom("0", "report");
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body, "report");
  for (const char* status : {"500 Broken", "409 Conflict", "423 Locked"}) {
    peer_.Answer(status);
    AnswerOffset("0");
    const PeerRequest retry = peer_.Expect("GET /files/1");
    EXPECT_EQ(retry.Header("Tus-Resumable"), "1.0.0");
    EXPECT_EQ(retry.Header("Upload-Offset"), "0");
    EXPECT_EQ(retry.Header("Content-Type"), "application/offset+octet-stream");
    EXPECT_EQ(retry.Header("Content-Length"), std::nullopt);
    EXPECT_EQ(retry.Header("Transfer-Encoding"), std::nullopt);
  }
  peer_.Answer("503 Busy");
  ExpectKept("report");
  EXPECT_EQ(host_.clock.Elapsed(), std::chrono::seconds(9));
  EXPECT_THAT(
      log_.Lines(),
      LogHas({"[INFO] PATCH Attempt 1/4: Offset=0, ChunkSize=6",
              "[ERROR] TUS PATCH failed (Attempt 1/4). CURLcode: 0 (No error), HTTP Status: 500",
              "[INFO] Checking server offset before retry...",
              "[INFO] TUS HEAD: Found existing Upload-Offset: 0",
              "[INFO] Retrying chunk in 3000 ms...",
              "[INFO] PATCH Attempt 2/4: Offset=0, ChunkSize=6",
              "[ERROR] TUS PATCH failed (Attempt 2/4). CURLcode: 0 (No error), HTTP Status: 409",
              "[ERROR] TUS PATCH failed (Attempt 3/4). CURLcode: 0 (No error), HTTP Status: 423",
              "[INFO] PATCH Attempt 4/4: Offset=0, ChunkSize=6",
              "[ERROR] TUS PATCH failed (Attempt 4/4). CURLcode: 0 (No error), HTTP Status: 503",
              "[ERROR] Maximum TUS PATCH retries reached. Aborting upload."}));
}

TEST_F(TusClientTest, OffsetAfterAFailureDecidesHowItGoesOn) {
  struct Row {
    std::string offset;
    LogText log;
    bool complete;
  };
  const Row rows[] = {
      {"10",
       {"[INFO] Server offset advanced to 10 during failed attempt. Updating local offset and "
        "continuing.",
        "[PROG] Upload Progress: 10 / 10 bytes (100.0%)",
        "[INFO] TUS Upload successfully completed for: dumps/r.zip"},
       true},
      {"1", {"[ERROR] Server offset 1 is LESS than current local offset 2. Aborting."}, false},
      {"?",
       {"[ERROR] TUS HEAD: Invalid argument parsing Upload-Offset '?': Not a number",
        "[ERROR] Failed to get server offset before retry. Aborting."},
       false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.offset);
    UploadFrom("2", "0123456789");
    peer_.Expect("PATCH /files/1");
    peer_.Answer("500 Broken");
    AnswerOffset(row.offset);
    row.complete ? ExpectDone() : ExpectKept("0123456789");
    EXPECT_THAT(log_.Lines(), LogHas(row.log));
  }
}

// The chunk after an advance is a fresh one, but goes out in the state that the query left.
TEST_F(TusClientTest, GoesOnFromAnAdvancedOffset) {
  UploadFrom("0", "0123456789");
  peer_.Expect("PATCH /files/1");
  peer_.Answer("500 Broken");
  AnswerOffset("4");
  const PeerRequest next = peer_.Expect("GET /files/1");
  EXPECT_EQ(next.Header("Upload-Offset"), "4");
  EXPECT_EQ(next.body, "");
  Accept("10");
  ExpectDone();
  EXPECT_EQ(host_.clock.Elapsed(), std::chrono::seconds(0));
  EXPECT_THAT(
      log_.Lines(),
      LogHas({"[PROG] Upload Progress: 4 / 10 bytes (40.0%)",
              "[INFO] PATCH Attempt 1/4: Offset=4, ChunkSize=6",
              "[WARN] Server offset mismatch after PATCH! Expected: 4, Server returned: 10. "
              "Trusting server offset.",
              "[WARN]  -> Bytes read by callback for chunk: 0, Bytes reported sent by CURL: "
              "0"}));
}

// A chunk that does not get through whole, whoever is to blame, and a server that knows nothing of
// it: the offset is checked, the retry refused, the file kept.
TEST_F(TusClientTest, BrokenChunksKeepTheFile) {
  const std::string bytes = Bytes(3'000'000);
  struct Row {
    std::string name;
    std::function<void()> set_up;
    std::size_t received;  // how much of the chunk the server reads before it answers
    std::function<void()> answer;
    std::string code;
    std::size_t kept = 3'000'000;
  };
  const auto drop = [this] { peer_.Drop(); };
  const Row rows[] = {
      {"connection breaks", [] {}, 1'000'000, drop, ""},
      {"redirected after the body", [] {}, 3'000'000,
       [this] { peer_.Answer("307 Temporary Redirect", {"Location: /other"}); },
       "65 (Send failed since rewinding of the data stream failed)"},
      {"file breaks",
       [this] { host_.choke.faults.Add({.kind = support::FaultKind::broken_stream}); }, 3'000'000,
       [] {}, "42 (Operation was aborted by an application callback)"},
      {"file ends early",
       [this] {
         files_.before_read = [](int reads) {
           if (reads == 1) fs::resize_file(kReport, 600'000);
         };
       },
       600'000, drop, "", 600'000},
      {"endless headers", [] {}, 3'000'000,
       [this] {
         peer_.Send("HTTP/1.1 204 No Content\r\n");
         while (peer_.Send("X-Filler: " + std::string(1000, 'x') + "\r\n")) {
         }
         peer_.Drop();
       },
       ""},
      {"refused early", [] {}, 0,
       [this] {
         peer_.Answer("500 Broken");
         peer_.Drop();
       },
       ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    row.set_up();
    UploadFrom("0", bytes);
    peer_.Expect("PATCH /files/1", row.received);
    row.answer();
    AnswerOffset("0");
    peer_.Expect("GET /files/1");
    peer_.Answer("405 Method Not Allowed");
    ExpectKept(bytes.substr(0, row.kept));
    EXPECT_THAT(log_.Lines(),
                Contains(HasSubstr("TUS PATCH failed (Attempt 1/4). CURLcode: " + row.code)));
    EXPECT_THAT(log_.Lines(), LogHas({"[INFO] Retrying chunk in 3000 ms...",
                                      "[ERROR] Non-retriable HTTP error (405) received during TUS "
                                      "PATCH. Aborting upload."}));
    host_.choke.faults.Clear();
    files_.before_read = nullptr;
    peer_.Drop();
  }
}

TEST_F(TusClientTest, FilesThatCannotBeSent) {
  struct Row {
    std::string name;
    std::function<void()> set_up;
    LogText log;
    bool gone;
  };
  const std::string skipped =
      "[WARN] Skipping upload of zero-byte or invalid size file: dumps/r.zip (Size: 0)";
  const Row rows[] = {
      {"missing",
       [] { fs::remove(kReport); },
       {"[INFO] Starting TUS upload for: dumps/r.zip",
        "[ERROR] File does not exist for upload: dumps/r.zip"},
       true},
      {"unclear",
       [this] { host_.FailNext("files.Exists", 5); },
       {"[INFO] Starting TUS upload for: dumps/r.zip",
        "[ERROR] Invalid file path 'dumps/r.zip': Access is denied."},
       false},
      {"no size",
       [this] { host_.FailNext("files.SizeOf", 5); },
       {"[INFO] Starting TUS upload for: dumps/r.zip",
        "[ERROR] Failed to get file size for 'dumps/r.zip': Access is denied."},
       false},
      {"empty",
       [] {},
       {"[INFO] Starting TUS upload for: dumps/r.zip", skipped,
        "[INFO] Deleted zero-byte file: dumps/r.zip"},
       true},
      {"empty and held",
       [this] { host_.FailNext("files.Remove", 5); },
       {"[INFO] Starting TUS upload for: dumps/r.zip", skipped,
        "[WARN] Exception while deleting zero-byte file 'dumps/r.zip': Access is denied."},
       false},
      {"empty and gone just then",
       [this] { files_.before_remove = [](const fs::path& path) { fs::remove(path); }; },
       {"[INFO] Starting TUS upload for: dumps/r.zip", skipped,
        "[WARN] Failed to delete zero-byte file: dumps/r.zip"},
       true},
      {"an exception",
       [this] {
         files_.before_exists = [](const fs::path&) { throw std::runtime_error("no memory"); };
       },
       {"[INFO] Starting TUS upload for: dumps/r.zip",
        "[ERROR] Exception during TUS upload of 'dumps/r.zip': no memory"},
       false},
  };
  std::size_t logged = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host_.PutFile(kReport, "");
    row.set_up();
    peer_.Run([this] { return client_.TusUpload(kReport); });
    EXPECT_FALSE(peer_.Result());
    EXPECT_EQ(fs::exists(kReport), !row.gone);
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    const LogText lines = log_.Lines();
    EXPECT_THAT(LogText(lines.begin() + static_cast<std::ptrdiff_t>(logged), lines.end()),
                LogIs(row.log));
    logged = lines.size();
  }
}

TEST_F(TusClientTest, FileThatCannotBeOpenedIsKept) {
  host_.FailNext("files.OpenForReading", 32);
  UploadFrom("0", "report");
  ExpectKept("report");
  EXPECT_THAT(log_.Lines(), LogHas({"[ERROR] Failed to open file for reading: dumps/r.zip"}));
}

// The server holds all of it, so the upload has succeeded whatever becomes of the local file.
TEST_F(TusClientTest, UploadSucceedsWhereOnlyTheDeletionFails) {
  const std::pair<std::string, std::string> rows[] = {
      {"6",
       "[WARN] Exception while deleting already uploaded file 'dumps/r.zip': Access is denied."},
      {"0",
       "[WARN] Exception occurred while deleting local file 'dumps/r.zip' post-upload: Access is "
       "denied."},
  };
  for (const auto& [offset, line] : rows) {
    host_.FailNext("files.Remove", 5);
    UploadFrom(offset, "report");
    if (offset == "0") {
      peer_.Expect("PATCH /files/1");
      Accept("6");
    }
    EXPECT_TRUE(peer_.Result());
    EXPECT_TRUE(fs::exists(kReport));
    EXPECT_THAT(log_.Lines(), LogHas({line}));
  }
}

}  // namespace
}  // namespace vosk::report
