#include "net/redirections.h"

#include <gtest/gtest.h>

namespace vosk::net {
namespace {

TEST(Redirections, NeverLeadFromEncryptionToPlainText) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"https://host/", "https"},       {"HTTPS://host/", "https"},
      {"http://host/", "http,https"},   {"http://https:1/", "http,https"},
      {"httpsx://host/", "http,https"}, {"", "http,https"},
  };
  for (const auto& [url, protocols] : rows) EXPECT_EQ(AllowedProtocols(url), protocols) << url;
}

}  // namespace
}  // namespace vosk::net
