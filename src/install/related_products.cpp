#include "install/related_products.h"

#include "identity.h"

namespace vosk::install {

RelatedProducts FindRelatedProducts(platform::Installer& installer) {
  RelatedProducts found;
  const std::string upgrade_code(identity::kCoreUpgradeCode);
  for (std::uint32_t index = 0;; ++index) {
    auto code = installer.RelatedProduct(upgrade_code, index);
    if (!code) {
      found.end = code.error().code;
      return found;
    }
    found.codes.push_back(std::move(*code));
  }
}

}  // namespace vosk::install
