// The installed versions of the Core, as Windows Installer knows them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "platform/installer.h"

namespace vosk::install {

// The outcome of removing all of them.
struct UninstallTally {
  std::size_t found = 0;
  bool clean = true;        // the list was complete, and every product on it was removed
  platform::ErrorCode end;  // what ended the list: kNoMoreItems if it is complete
};

// Has `uninstall` remove each of them; it gets the product code and returns false if that failed.
[[nodiscard]] UninstallTally UninstallRelatedProducts(
    platform::Installer& installer, const std::function<bool(const std::string&)>& uninstall);

}  // namespace vosk::install
