// Asks the server how much of an upload it holds.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <string>

#include "console/log.h"
#include "report/upload/tus_transfer.h"

namespace vosk::report {

// Returns how many bytes the server holds: 0 if it does not know the upload, -1 on failure. Leaves
// the handle set to a plain request without a body and without a method of its own.
[[nodiscard]] std::int64_t GetTusUploadOffset(CURL* handle, const std::string& upload_url,
                                              TusResponse& response, console::LogSink& log);

}  // namespace vosk::report
