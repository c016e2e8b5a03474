#include "install/related_products.h"

#include <vector>

#include "identity.h"

namespace vosk::install {

UninstallTally UninstallRelatedProducts(platform::Installer& installer,
                                        const std::function<bool(const std::string&)>& uninstall) {
  const std::string upgrade_code(identity::kCoreUpgradeCode);
  // Listed before anything is removed, since removing one product moves up those that follow it.
  std::vector<std::string> product_codes;
  auto code = installer.RelatedProduct(upgrade_code, 0);
  for (std::uint32_t next = 1; code; ++next) {
    product_codes.push_back(std::move(*code));
    code = installer.RelatedProduct(upgrade_code, next);
  }
  UninstallTally tally{.found = product_codes.size(), .end = code.error().code};
  tally.clean = tally.end == platform::kNoMoreItems;
  for (const std::string& product_code : product_codes) {
    if (!uninstall(product_code)) tally.clean = false;
  }
  return tally;
}

}  // namespace vosk::install
