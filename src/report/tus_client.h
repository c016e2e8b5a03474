// Uploads one file by the TUS 1.0.0 protocol: POST creates, HEAD asks for the offset, PATCH sends.
#pragma once

#include <string>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "report/uploader.h"

namespace vosk::report {

class TusClient : public Uploader {
 public:
  // `endpoint` is the server's creation URL and the base of a relative upload location.
  TusClient(std::string endpoint, platform::Files& files, platform::Clock& clock,
            console::LogSink& log, console::TransferProgress& progress);

  bool TusUpload(const std::filesystem::path& file_path) override;

 private:
  std::string endpoint_;
  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
};

}  // namespace vosk::report
