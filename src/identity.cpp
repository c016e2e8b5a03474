#include "identity.h"

namespace vosk::identity {

const std::string_view kCollectionUrl = VOSK_COLLECTION_URL;

}  // namespace vosk::identity
