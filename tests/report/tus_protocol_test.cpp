#include "report/upload/tus_protocol.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

namespace vosk::report {
namespace {

TEST(TusProtocol, FindsHeaderValues) {
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"LOCATION:/a\r\n", "location", "/a"},
      {"location: /a\r\n", "Location", "/a"},
      {"Location: \t http://h:8/x \t\r\n", "Location", "http://h:8/x"},
      {"Location: /lf-only\n", "Location", "/lf-only"},
      {"Location: /no-line-end", "Location", "/no-line-end"},
      {"Location: /first\r\nLocation: /second\r\n", "Location", "/first"},
      {"X-Location: /a\r\nLocation : /b\r\n", "Location", ""},
      {"\r\n\r\nno colon\r\nLocation: /late\r\n", "Location", "/late"},
      {"Location:\r\nUpload-Offset: 5\r\n", "Location", ""},
      {"Location: /a\r\r\n", "Location", "/a\r"},
      {"", "Location", ""},
  };
  for (const auto& [headers, name, value] : rows) {
    EXPECT_EQ(FindHeaderValue(headers, name), value) << headers;
  }
}

TEST(TusProtocol, EncodesBase64) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foobar", "Zm9vYmFy"},
      {std::string("\x00\xff\xfe\xfb\xef\xbe", 6), "AP/+++++"},
  };
  for (const auto& [bytes, text] : rows) EXPECT_EQ(Base64Encode(bytes), text);
}

TEST(TusProtocol, ParsesOffsets) {
  const std::pair<std::string, std::string> rows[] = {
      {"+17", "17"},
      {"-5", "-5"},
      {"9223372036854775807", "9223372036854775807"},
      {"9223372036854775808", "range: Number does not fit into 64 bits"},
      {"-99999999999999999999999", "range: Number does not fit into 64 bits"},
      {"", "argument: Not a number"},
      {"+", "argument: Not a number"},
      {"+-5", "argument: Not a number"},
      {"12x", "argument: Invalid characters after offset number"},
      {"0x10", "argument: Invalid characters after offset number"},
  };
  for (const auto& [value, outcome] : rows) {
    std::string got;
    try {
      got = std::to_string(ParseOffset(value));
    } catch (const std::out_of_range& problem) {
      got = fmt::format("range: {}", problem.what());
    } catch (const std::invalid_argument& problem) {
      got = fmt::format("argument: {}", problem.what());
    }
    EXPECT_EQ(got, outcome) << value;
  }
}

TEST(TusProtocol, JudgesChunkAnswers) {
  using enum ChunkVerdict;
  const std::tuple<bool, long, int, ChunkVerdict> rows[] = {
      {true, 204, 4, accepted},
      {false, 204, 1, retry},
      {false, 0, 3, retry},
      {false, 400, 1, retry},
      {true, 500, 1, retry},
      {true, 599, 3, retry},
      {true, 409, 2, retry},
      {true, 423, 1, retry},
      {true, 200, 1, refused},
      {true, 404, 3, refused},
      {true, 499, 1, refused},
      {true, 400, 4, attempts_used_up},
      {true, 500, 4, attempts_used_up},
      {false, 0, 4, attempts_used_up},
  };
  for (const auto& [transferred, status, attempt, verdict] : rows) {
    EXPECT_EQ(JudgeChunk(transferred, status, attempt), verdict)
        << transferred << ' ' << status << ' ' << attempt;
  }
}

TEST(TusProtocol, JudgesOffsetAnswers) {
  for (const long status : {403, 404, 410}) {
    EXPECT_EQ(JudgeOffsetAnswer(status, "Upload-Offset: 3\r\n"), OffsetVerdict::resource_missing);
  }
  for (const long status : {201, 400, 409, 500}) {
    EXPECT_EQ(JudgeOffsetAnswer(status, "Upload-Offset: 3\r\n"), OffsetVerdict::refused);
  }
}

TEST(TusProtocol, PreparesRequests) {
  EXPECT_EQ(ChunkLength(6'000'000'000, 7'000'000'000), 5'242'880);
  EXPECT_EQ(UploadMetadata("a.ZIP", ".ZIP"),
            "filename YS5aSVA=,filetype YXBwbGljYXRpb24vb2N0ZXQtc3RyZWFt");
}

}  // namespace
}  // namespace vosk::report
