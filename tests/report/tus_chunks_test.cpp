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

using TusChunksTest = TusDialogue;

TEST_F(TusChunksTest, SendsAFileInChunks) {
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

  EXPECT_THAT(NewLines(),
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

TEST_F(TusChunksTest, SendsAFileOfOneChunkInOneRequest) {
  UploadFrom("0", Bytes(5'242'880));
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body.size(), 5'242'880u);
  Accept("5242880");
  ExpectDone();
}

TEST_F(TusChunksTest, TrustsTheServersOffset) {
  UploadFrom("0", "0123456789");
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body, "0123456789");
  Accept("4");
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body, "456789");
  Accept("2");
  EXPECT_EQ(peer_.Expect("PATCH /files/1").body, "23456789");
  Accept("11");
  ExpectDone();
  EXPECT_THAT(
      NewLines(),
      LogHas({"[WARN] Server offset mismatch after PATCH! Expected: 10, Server returned: 4. "
              "Trusting server offset.",
              "[WARN]  -> Bytes read by callback for chunk: 10, Bytes reported sent by CURL: 10",
              "[PROG] Upload Progress: 4 / 10 bytes (40.0%)",
              "[PROG] Upload Progress: 11 / 10 bytes (110.0%)",
              "[INFO] TUS Upload successfully completed for: dumps/r.zip"}));
}

TEST_F(TusChunksTest, ServerThatNeverAdvancesEndsTheUpload) {
  UploadFrom("0", "report");
  int requests = 0;
  while (const auto request = peer_.Await()) {
    ++requests;
    Accept("0");
  }
  ExpectKept("report");
  EXPECT_EQ(requests, 100);
  EXPECT_THAT(
      NewLines(),
      LogHas(
          {"[ERROR] Server offset did not advance in 100 answers to TUS PATCH. Aborting upload."}));
}

TEST_F(TusChunksTest, FinalAnswersToAChunkEndTheUpload) {
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
       {"Upload-Offset: 6 bytes"},
       {"[ERROR] Failed to parse 'Upload-Offset' header ('6 bytes') after successful PATCH: "
        "Invalid characters after offset number. Aborting."}},
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
    EXPECT_THAT(NewLines(), LogHas(row.log));
  }
  EXPECT_EQ(host_.clock.Elapsed(), std::chrono::seconds(0));
}

// What goes over the wire after an offset query: the chunk's headers, but as a plain GET without
// the chunk. That is how the handle is left.
TEST_F(TusChunksTest, RetriesGoOutAsPlainRequests) {
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
      NewLines(),
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

TEST_F(TusChunksTest, OffsetAfterAFailureDecidesHowItGoesOn) {
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
    EXPECT_THAT(NewLines(), LogHas(row.log));
  }
}

// The chunk after an advance is a fresh one, but goes out in the state that the query left.
TEST_F(TusChunksTest, GoesOnFromAnAdvancedOffset) {
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
      NewLines(),
      LogHas({"[PROG] Upload Progress: 4 / 10 bytes (40.0%)",
              "[INFO] PATCH Attempt 1/4: Offset=4, ChunkSize=6",
              "[WARN] Server offset mismatch after PATCH! Expected: 4, Server returned: 10. "
              "Trusting server offset.",
              "[WARN]  -> Bytes read by callback for chunk: 0, Bytes reported sent by CURL: 0"}));
}

// A chunk that does not get through whole, whoever is to blame, and a server that knows nothing of
// it: the offset is checked, the retry refused, the file kept.
TEST_F(TusChunksTest, BrokenChunksKeepTheFile) {
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
    const LogText lines = NewLines();
    EXPECT_THAT(lines, Contains(HasSubstr("(Attempt 1/4). CURLcode: " + row.code)));
    EXPECT_THAT(lines, LogHas({"[INFO] Retrying chunk in 3000 ms...",
                               "[ERROR] Non-retriable HTTP error (405) received during TUS PATCH. "
                               "Aborting upload."}));
    host_.choke.faults.Clear();
    files_.before_read = nullptr;
    peer_.Drop();
  }
}

}  // namespace
}  // namespace vosk::report
