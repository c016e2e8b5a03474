#include "files/fixed_path.h"

#include <gtest/gtest.h>

namespace vosk::files {
namespace {

TEST(FixedPath, StartsAtTheRootOfADriveOrShare) {
  const std::tuple<std::string, bool, std::string> rows[] = {
      {"C:/Temp/x", true, "C:/"},
      {"c:\\Temp", true, "c:\\"},
      {"C:Temp", false, ""},
      {"C:/Temp/../x", false, "C:/"},
      {"Temp", false, ""},
      {"\\\\server\\share\\Temp\\x", true, "\\\\server\\share\\"},
      {"//server/share/Temp/", true, "//server/share/"},
      {"//server/share/Temp/..", false, "//server/share/"},
      {"\\\\server\\share", true, "\\\\server\\share\\"},
      {"\\\\server\\", false, ""},
      {"\\\\server", false, ""},
      {"\\\\server\\\\Temp", false, ""},
      {"\\\\?\\C:\\Temp", false, ""},
      {"\\Temp", false, ""},
  };
  for (const auto& [path, fixed, root] : rows) {
    EXPECT_EQ(IsFixedPath(path), fixed) << path;
    EXPECT_EQ(VolumeRoot(path).string(), root) << path;
  }
}

}  // namespace
}  // namespace vosk::files
