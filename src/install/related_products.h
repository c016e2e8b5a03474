#pragma once

#include <string>
#include <vector>

#include "platform/installer.h"

namespace vosk::install {

struct RelatedProducts {
  std::vector<std::string> codes;
  // What ended the enumeration: kNoMoreItems where it is complete.
  platform::ErrorCode end;
};

// Every installed version of the Core. Listed before anything is removed, since removing one
// product moves up those that follow it.
[[nodiscard]] RelatedProducts FindRelatedProducts(platform::Installer& installer);

}  // namespace vosk::install
