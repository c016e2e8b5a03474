// Uploads one file with the TUS 1.0.0 protocol: POST creates, HEAD asks for the offset, PATCH
// sends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "report/upload/tus_transfer.h"
#include "report/upload/uploader.h"

namespace vosk::report {

class TusClient : public Uploader {
 public:
  // `endpoint` is the server's creation URL and the base of a relative upload location. All
  // references outlive the client.
  TusClient(std::string endpoint, platform::Files& files, platform::Clock& clock,
            console::LogSink& log, console::TransferProgress& progress);

  using Uploader::TusUpload;
  bool TusUpload(const std::filesystem::path& file_path, const Interrupt& interrupt) override;

  // Returns how many bytes of an upload the server holds: 0 if it does not know it, -1 on failure.
  // The handle's method, body and headers are set and reset afterwards.
  [[nodiscard]] std::int64_t GetTusUploadOffset(CURL* handle, const std::string& upload_url,
                                                TusResponse& response);

 private:
  std::string endpoint_;
  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
};

}  // namespace vosk::report
