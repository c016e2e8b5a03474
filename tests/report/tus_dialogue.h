// One upload, of which the test plays the server.
#pragma once

#include <gtest/gtest.h>

#include "report/tus_client.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"
#include "tests/support/meddling_files.h"
#include "tests/support/scripted_peer.h"

namespace vosk::report {

using support::MeddlingFiles;
using support::PeerRequest;
using support::ScriptedPeer;

inline const std::filesystem::path kReport = "dumps/r.zip";

// Bytes that differ from place to place.
inline std::string Bytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t at = 0; at < size; ++at) bytes[at] = static_cast<char>(at * 7 + at / 251);
  return bytes;
}

class TusDialogue : public testing::Test {
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
    EXPECT_FALSE(std::filesystem::exists(kReport));
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }
  // The upload failed and its file is as it was.
  void ExpectKept(const std::string& bytes) {
    EXPECT_FALSE(peer_.Result());
    EXPECT_EQ(support::SimulatedHost::ReadFile(kReport), bytes);
    EXPECT_EQ(progress_.Percentage(), console::TransferProgress::kHidden);
    EXPECT_EQ(progress_.ActivityLabel(), "");
  }
  [[nodiscard]] std::string ResourceUrl() const { return peer_.Url() + "files/1"; }

  // What was logged since the last call.
  support::LogText NewLines() {
    const support::LogText lines = log_.Lines();
    const auto first = lines.begin() + static_cast<std::ptrdiff_t>(seen_lines_);
    seen_lines_ = lines.size();
    return {first, lines.end()};
  }

  support::CheckedHost host_;
  MeddlingFiles files_{host_.files};
  support::LogRecorder log_{host_};
  std::size_t seen_lines_ = 0;
  console::TransferProgress progress_;
  ScriptedPeer peer_;
  TusClient client_{peer_.Url(), files_, host_.clock, log_.Sink(), progress_};
};

}  // namespace vosk::report
