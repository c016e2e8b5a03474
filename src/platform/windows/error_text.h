#pragma once

#include "platform/types.h"

namespace vosk::platform::windows {

// Returns the calling thread's last error.
[[nodiscard]] ErrorCode LastError();

// Returns the system's text for an error number, in UTF-8 and without a line end.
[[nodiscard]] std::string ErrorText(ErrorCode code);

// Returns the last error with its text.
[[nodiscard]] Error LastFileError();

}  // namespace vosk::platform::windows
