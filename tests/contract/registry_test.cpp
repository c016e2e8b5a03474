// The machine-wide registry.
#include "platform/registry.h"

#include "tests/contract/host_under_test.h"

namespace vosk::contract {
namespace {

using platform::RegistryKey;
using platform::RegistryValue;
namespace rights = platform::registry_access;

constexpr std::uint32_t kReadWrite = rights::kRead | rights::kWrite;
const std::string kKey = "SOFTWARE\\VOSK contract";
const RegistryValue kOne{platform::kRegistryDword, {1, 0, 0, 0}};
const RegistryValue kNull{platform::kRegistryString, {'0', 0, 0, 0}};

class RegistryContract : public Contract {
 protected:
  RegistryContract() { RemoveKey(); }
  ~RegistryContract() override { RemoveKey(); }

  // The simulated registry is new for each test anyway.
  void RemoveKey() { host_.processes.RunShellCommand("reg delete \"HKLM\\" + kKey + "\" /f"); }

  RegistryKey Create(const std::string& path, std::uint32_t access_mask = kReadWrite) {
    auto created = host_.registry.CreateOrOpen(path, access_mask);
    EXPECT_TRUE(created) << CodeOf(created);
    return created ? std::move(created->key) : RegistryKey();
  }
};

TEST_F(RegistryContract, AKeyIsCreatedOnceWithItsParents) {
  EXPECT_EQ(CodeOf(host_.registry.Open(kKey, rights::kRead)), 2u);
  const auto created = host_.registry.CreateOrOpen(kKey + "\\Deep\\Down", rights::kWrite);
  ASSERT_TRUE(created) << CodeOf(created);
  EXPECT_TRUE(created->newly_created);
  const auto again = host_.registry.CreateOrOpen(kKey + "\\deep\\DOWN", rights::kWrite);
  ASSERT_TRUE(again) << CodeOf(again);
  EXPECT_FALSE(again->newly_created) << "letter case does not count";
  EXPECT_TRUE(host_.registry.Open(kKey + "\\Deep", rights::kRead | rights::kView64));
}

TEST_F(RegistryContract, ValuesComeBackAsTheyWereSet) {
  const RegistryKey key = Create(kKey);
  const RegistryValue empty{platform::kRegistryString, {}};
  for (const RegistryValue& value : {kOne, kNull, empty}) {
    EXPECT_TRUE(host_.registry.SetValue(key, "Auto", value));
    const auto read = host_.registry.Query(key, "AUTO");
    ASSERT_TRUE(read) << CodeOf(read);
    EXPECT_EQ(read->type, value.type);
    EXPECT_EQ(read->data, value.data);
  }
}

TEST_F(RegistryContract, AMissingValueIsNotFound) {
  const RegistryKey key = Create(kKey);
  EXPECT_EQ(CodeOf(host_.registry.Query(key, "Debugger")), 2u);
  EXPECT_EQ(CodeOf(host_.registry.RemoveValue(key, "Debugger")), 2u);
  EXPECT_TRUE(host_.registry.SetValue(key, "Debugger", kNull));
  EXPECT_TRUE(host_.registry.RemoveValue(key, "debugger"));
  EXPECT_EQ(CodeOf(host_.registry.Query(key, "Debugger")), 2u);
}

TEST_F(RegistryContract, SubKeysAreCountedFromNought) {
  const RegistryKey key = Create(kKey);
  EXPECT_EQ(CodeOf(host_.registry.SubKeyName(key, 0)), 259u);
  Create(kKey + "\\Second");
  Create(kKey + "\\First\\Below");
  EXPECT_EQ(host_.registry.SubKeyName(key, 0), "First");
  EXPECT_EQ(host_.registry.SubKeyName(key, 1), "Second");
  EXPECT_EQ(CodeOf(host_.registry.SubKeyName(key, 2)), 259u);
}

TEST_F(RegistryContract, AHandleGivesOnlyTheRightsItWasOpenedWith) {
  Create(kKey);
  const RegistryKey reading = *host_.registry.Open(kKey, rights::kRead);
  EXPECT_EQ(CodeOf(host_.registry.SetValue(reading, "DontShowUI", kOne)), 5u);
  EXPECT_EQ(CodeOf(host_.registry.RemoveValue(reading, "DontShowUI")), 5u);
  const RegistryKey writing = *host_.registry.Open(kKey, rights::kWrite);
  EXPECT_TRUE(host_.registry.SetValue(writing, "DontShowUI", kOne));
  EXPECT_EQ(CodeOf(host_.registry.Query(writing, "DontShowUI")), 5u);
  EXPECT_EQ(CodeOf(host_.registry.Query(RegistryKey(), "DontShowUI")), 6u);
}

}  // namespace
}  // namespace vosk::contract
