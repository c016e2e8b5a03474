// Texts too long for a source file, stored beside the tests that expect them.
#pragma once

#include <filesystem>
#include <string>

namespace vosk::support {

// Expects the text to be that of the file, which a person can read in a review. With the
// environment variable VOSK_RENEW=1 the text is stored in the file instead. `file` is below tests/.
void ExpectStoredText(const std::filesystem::path& file, const std::string& text);

}  // namespace vosk::support
