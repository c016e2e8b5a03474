#pragma once

#include "platform/types.h"

namespace vosk::platform::windows {

// The calling thread's last error.
[[nodiscard]] ErrorCode LastError();

// The system's text for an error number, in UTF-8 and without a line end.
[[nodiscard]] std::string ErrorText(ErrorCode code);

// The last error with its text.
[[nodiscard]] Error LastFileError();

}  // namespace vosk::platform::windows
