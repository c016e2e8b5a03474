#include "report/upload/tus_transfer.h"

#include <gtest/gtest.h>

#include <sstream>

namespace vosk::report {
namespace {

TEST(TusTransfer, ResponsesAreBounded) {
  char byte = 'x';
  const auto expect_cap = [&](auto append, std::string TusResponse::*buffer, std::size_t cap) {
    TusResponse response;
    (response.*buffer).resize(cap - 1);
    EXPECT_EQ(append(&byte, 0, 1, &response), 0u);
    EXPECT_EQ(append(&byte, 1, 1, nullptr), 0u);
    EXPECT_EQ(append(&byte, 1, 1, &response), 1u);
    EXPECT_EQ(append(&byte, 1, 1, &response), 0u);
    EXPECT_EQ((response.*buffer).size(), cap);
    EXPECT_EQ((response.*buffer).back(), 'x');
  };
  expect_cap(&AppendHeader, &TusResponse::headers, 1'048'576);
  expect_cap(&AppendBody, &TusResponse::body, 10'485'760);
}

TEST(TusTransfer, ReadsFromTheStreamToItsEnd) {
  char buffer[4] = {};
  TusResponse response;
  EXPECT_EQ(read_callback(buffer, 1, 4, nullptr), 0u);
  EXPECT_EQ(read_callback(buffer, 1, 4, &response), 0u) << "no stream";
  response.stream = std::make_unique<std::istringstream>("report");
  EXPECT_EQ(read_callback(buffer, 0, 4, &response), std::size_t{CURL_READFUNC_ABORT});
  EXPECT_EQ(read_callback(buffer, 2, 2, &response), 4u);
  EXPECT_EQ(read_callback(buffer, 1, 4, &response), 2u);
  EXPECT_EQ(std::string(buffer, 4), "rtpo");
  EXPECT_EQ(response.bytesReadForChunk, 6);
  EXPECT_EQ(read_callback(buffer, 0, 4, &response), 0u) << "the end goes before the abort";
}

TEST(TusTransfer, ProgressNeedsAKnownSize) {
  console::TransferProgress progress;
  std::int64_t offset = 500;
  TusProgressContext unknown{0, &offset, &progress};
  TusProgressContext nowhere{1000, nullptr, &progress};
  TusProgressContext context{1000, &offset, &progress};
  ReportProgress(nullptr, 0, 0, 0, 250);
  ReportProgress(&unknown, 0, 0, 0, 250);
  ReportProgress(&nowhere, 0, 0, 0, 250);
  EXPECT_EQ(progress.Percentage(), console::TransferProgress::kHidden);
  EXPECT_EQ(ReportProgress(&context, 0, 0, 0, 250), 0);
  EXPECT_EQ(progress.Percentage(), 75.0);
}

}  // namespace
}  // namespace vosk::report
