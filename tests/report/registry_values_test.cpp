#include "report/host_info/registry_values.h"

#include <gtest/gtest.h>

namespace vosk::report {
namespace {

using platform::kRegistryDword;
using platform::kRegistryString;
using Bytes = std::vector<std::uint8_t>;

TEST(RegistryValues, TextsAsTheyAreStored) {
  const std::pair<Bytes, std::string> rows[] = {
      {{'H', 0, 'i', 0}, "Hi"},             // no terminator
      {{'H', 0, 'i', 0, 0, 0, 0}, "Hi"},    // an odd byte behind the terminator
      {{'H', 0, 'i', 0, 'x'}, "Hi"},        // half a character
      {{'H', 0, 0, 0, 'i', 0, 0, 0}, "H"},  // two texts in one
      {{}, ""},
      {{0xfc, 0, 0x09, 0x4e}, "\u00fc\u4e09"},
      {{0x3d, 0xd8, 'x', 0, 0, 0}, "<WideCharToMultiByte Error: 1113>"},
  };
  constexpr std::uint32_t kExpandable = 2;
  for (const auto& [data, expected] : rows) {
    EXPECT_EQ(DecodeText({kRegistryString, data}), expected);
    EXPECT_EQ(DecodeText({kExpandable, data}), expected);
    EXPECT_EQ(DecodeText({kRegistryDword, data}),
              tl::unexpected(platform::Error(kUnsupportedType)));
  }
}

TEST(RegistryValues, NumbersHaveFourBytesAndTheirOwnType) {
  const Bytes bytes{0x08, 0x0e, 0x08, 0x80};
  EXPECT_EQ(DecodeNumber({kRegistryDword, bytes}), 0x80080e08u);
  EXPECT_FALSE(DecodeNumber({kRegistryDword, {1, 0, 0}}));
  EXPECT_FALSE(DecodeNumber({kRegistryString, bytes}));
}

}  // namespace
}  // namespace vosk::report
