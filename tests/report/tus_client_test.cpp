#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/report/tus_dialogue.h"

namespace vosk::report {
namespace {

namespace fs = std::filesystem;
using support::LogHas;
using support::LogIs;
using support::LogText;
using testing::Contains;
using testing::HasSubstr;

using TusClientTest = TusDialogue;

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
    EXPECT_THAT(NewLines(), LogHas(row.log));
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
  EXPECT_THAT(NewLines(), Contains(HasSubstr("[ERROR] TUS POST request failed. CURLcode: ")));

  Upload("report");
  AnswerCreation();
  peer_.Expect("HEAD /files/1");
  flood();
  ExpectKept("report");
  EXPECT_THAT(NewLines(), Contains(HasSubstr("[ERROR] TUS HEAD request failed. CURLcode: ")));
}

TEST_F(TusClientTest, ServerThatIsDownKeepsTheFile) {
  peer_.GoDown();
  Upload("report");
  ExpectKept("report");
  EXPECT_THAT(NewLines(), LogHas({"[ERROR] TUS POST request failed. CURLcode: 7 (Couldn't connect "
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

struct OffsetRow {
  std::string status;
  std::vector<std::string> headers;
  LogText log;
  std::string sent;  // "": nothing, the upload has failed; "done": nothing, it is complete
};
const std::string kUndetermined =
    "[ERROR] Failed to determine initial upload offset via HEAD request.";
std::string Missing(int status) {
  return fmt::format(
      "[INFO] TUS HEAD: Resource not found or access denied (HTTP {}). Assuming offset is 0.",
      status);
}
const OffsetRow kFirstOffsets[] = {
    {"204 No Content",
     {"upload-offset: 2"},
     {"[INFO] TUS HEAD: Found existing Upload-Offset: 2"},
     "port"},
    {"200 OK",
     {"Upload-Length: 6"},
     {"[WARN] TUS HEAD: Upload-Offset header missing, but Upload-Length found. Assuming offset is "
      "0."},
     "report"},
    {"403 Forbidden", {}, {Missing(403)}, "report"},
    {"404 Not Found", {"Upload-Offset: 3"}, {Missing(404)}, "report"},
    {"410 Gone", {}, {Missing(410)}, "report"},
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
     {"[INFO] TUS HEAD: Found existing Upload-Offset: -1", kUndetermined},
     ""},
    {"200 OK",
     {"X-Nothing: 1"},
     {"[ERROR] TUS HEAD: Received HTTP 200 but required 'Upload-Offset' (or 'Upload-Length') "
      "header is missing.",
      "[ERROR] Headers received:", "X-Nothing: 1\r", kUndetermined},
     ""},
    {"200 OK",
     {"Upload-Offset: soon"},
     {"[ERROR] TUS HEAD: Invalid argument parsing Upload-Offset 'soon': Not a number",
      kUndetermined},
     ""},
    {"200 OK",
     {"Upload-Offset: 1 of 6"},
     {"[ERROR] TUS HEAD: Invalid argument parsing Upload-Offset '1 of 6': Invalid characters after "
      "offset number",
      kUndetermined},
     ""},
    {"200 OK",
     {"Upload-Offset: 99999999999999999999"},
     {"[ERROR] TUS HEAD: Out of range parsing Upload-Offset '99999999999999999999': Number does "
      "not fit into 64 bits",
      kUndetermined},
     ""},
    {"500 Broken",
     {"X-Why: disk"},
     {"[ERROR] TUS HEAD: Unexpected HTTP status code: 500",
      "[ERROR] Response Body: ", "[ERROR] Response Headers:", "X-Why: disk\r", kUndetermined},
     ""},
};

TEST_F(TusClientTest, FirstOffsetDecidesWhatIsSent) {
  for (const OffsetRow& row : kFirstOffsets) {
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
    EXPECT_THAT(NewLines(), LogHas(row.log));
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
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host_.PutFile(kReport, "");
    row.set_up();
    peer_.Run([this] { return client_.TusUpload(kReport); });
    EXPECT_FALSE(peer_.Result());
    EXPECT_EQ(fs::exists(kReport), !row.gone);
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_THAT(NewLines(), LogIs(row.log));
  }
}

TEST_F(TusClientTest, FileThatCannotBeOpenedIsKept) {
  host_.FailNext("files.OpenForReading", 32);
  UploadFrom("0", "report");
  ExpectKept("report");
  EXPECT_THAT(NewLines(), LogHas({"[ERROR] Failed to open file for reading: dumps/r.zip"}));
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
    EXPECT_THAT(NewLines(), LogHas({line}));
  }
}

}  // namespace
}  // namespace vosk::report
