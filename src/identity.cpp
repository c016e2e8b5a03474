#include "identity.h"

namespace vosk::identity {

const std::string_view kCollectionUrl = VOSK_COLLECTION_URL;
const std::string_view kVersionServiceUrl = VOSK_VERSION_SERVICE_URL;
const std::string_view kCorePackageUrl = VOSK_CORE_PACKAGE_URL;
const std::string_view kProcDumpUrl = VOSK_PROCDUMP_URL;
const std::string_view kCoreUpgradeCode = VOSK_CORE_UPGRADE_CODE;

}  // namespace vosk::identity
