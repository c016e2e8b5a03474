// Whole uploads against servers that play by the rules, with something failing on our side.
#include <gtest/gtest.h>

#include "tests/report/tus_dialogue.h"
#include "tests/support/sweep.h"

namespace vosk::report {
namespace {

using support::LogHas;
using support::SimulatedHost;

// Serves one client to its end and gives what it has received.
std::string ServeWhole(ScriptedPeer& peer) {
  std::string held;
  while (const auto request = peer.Await()) {
    if (request->line == "POST /") {
      peer.Answer("201 Created", {"Location: /files/1"});
      continue;
    }
    if (request->line.starts_with("PATCH")) held += request->body;
    const std::string offset = "Upload-Offset: " + std::to_string(held.size());
    peer.Answer(request->line.starts_with("HEAD") ? "200 OK" : "204 No Content", {offset});
  }
  return held;
}

TEST(TusSweep, LosesNothingWhateverFails) {
  const std::string bytes = Bytes(40'000);
  support::SweepFaults([&](SimulatedHost& host) {
    host.PutFile(kReport, bytes);
    support::LogRecorder log(host);
    console::TransferProgress progress;
    ScriptedPeer peer;
    TusClient client(peer.Url(), host.files, host.clock, log.Sink(), progress);
    peer.Run([&] { return client.TusUpload(kReport); });
    const std::string held = ServeWhole(peer);

    EXPECT_EQ(progress.Percentage(), console::TransferProgress::kHidden);
    if (peer.Result()) {
      EXPECT_TRUE(held == bytes);
      const bool kept = std::filesystem::exists(kReport);
      EXPECT_TRUE(!kept || !host.choke.faults.Fired().empty());
    } else {
      EXPECT_FALSE(host.choke.faults.Fired().empty());
      EXPECT_TRUE(SimulatedHost::ReadFile(kReport) == bytes);
      EXPECT_THAT(log.Lines(), testing::Contains(testing::HasSubstr("[ERROR]")));
    }
  });
}

using TusTlsTest = TusDialogue;

TEST_F(TusTlsTest, RefusesAnUnknownCertificate) {
  const support::UnknownTlsServer server;
  TusClient client(server.Url(), files_, host_.clock, log_.Sink(), progress_);
  host_.PutFile(kReport, "report");
  EXPECT_FALSE(client.TusUpload(kReport));
  EXPECT_EQ(SimulatedHost::ReadFile(kReport), "report");
  EXPECT_THAT(NewLines(),
              LogHas({"[ERROR] TUS POST request failed. CURLcode: 60 (SSL peer certificate or SSH "
                      "remote key was not OK), HTTP Status: 0"}));
}

}  // namespace
}  // namespace vosk::report
