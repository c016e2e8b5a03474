#include "report/registry_values.h"

#include <gtest/gtest.h>

namespace vosk::report {
namespace {

using platform::RegistryValue;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kBinary = 3;
constexpr std::uint32_t kExpandable = 2;
constexpr std::uint32_t kNumber64 = 11;

TEST(RegistryValues, TextsAsTheyAreStored) {
  struct Row {
    Bytes data;
    std::string expected;
  };
  const Row rows[] = {
      {{'H', 0, 'i', 0, 0, 0}, "Hi"},
      {{'H', 0, 'i', 0}, "Hi"},             // no terminator
      {{'H', 0, 'i', 0, 0, 0, 0}, "Hi"},    // an odd byte behind the terminator
      {{'H', 0, 'i', 0, 'x'}, "Hi"},        // half a character
      {{'H', 0, 0, 0, 'i', 0, 0, 0}, "H"},  // two texts in one
      {{'H'}, ""},
      {{}, ""},
      {{0, 0}, ""},
      {{0xfc, 0, 0x09, 0x4e}, "\u00fc\u4e09"},
      {{0x3d, 0xd8, 0x00, 0xde, 0, 0}, "\U0001F600"},
      {{0x3d, 0xd8, 'x', 0, 0, 0}, "<WideCharToMultiByte Error: 1113>"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(DecodeText({platform::kRegistryString, row.data}), row.expected);
    EXPECT_EQ(DecodeText({kExpandable, row.data}), row.expected);
  }
}

TEST(RegistryValues, ValuesOfAnotherTypeAreNoText) {
  for (const std::uint32_t type : {0u, kBinary, platform::kRegistryDword, 7u, kNumber64}) {
    const auto text = DecodeText({type, {'H', 0, 'i', 0, 0, 0}});
    ASSERT_FALSE(text) << type;
    EXPECT_EQ(text.error(), kUnsupportedType);
  }
}

TEST(RegistryValues, NumbersHaveFourBytesAndTheirOwnType) {
  const Bytes bytes{0x08, 0x0e, 0x08, 0x80};
  EXPECT_EQ(DecodeNumber({platform::kRegistryDword, bytes}), 0x80080e08u);
  EXPECT_FALSE(DecodeNumber({platform::kRegistryDword, {1, 0, 0}}));
  EXPECT_FALSE(DecodeNumber({platform::kRegistryDword, {}}));
  EXPECT_FALSE(DecodeNumber({platform::kRegistryString, bytes}));
  EXPECT_FALSE(DecodeNumber({kNumber64, {1, 0, 0, 0, 0, 0, 0, 0}}));
}

}  // namespace
}  // namespace vosk::report
