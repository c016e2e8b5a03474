// Uploads one file by the TUS 1.0.0 protocol: POST creates, HEAD asks for the offset, PATCH sends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "report/tus_transfer.h"
#include "report/uploader.h"

namespace vosk::report {

class TusClient : public Uploader {
 public:
  // `endpoint` is the server's creation URL and the base of a relative upload location. All
  // references outlive the client.
  TusClient(std::string endpoint, platform::Files& files, platform::Clock& clock,
            console::LogSink& log, console::TransferProgress& progress);

  bool TusUpload(const std::filesystem::path& file_path) override;

  // How many bytes the server holds: 0 where it does not know the upload, -1 on failure. Leaves the
  // handle set to a plain request without a body and without a method of its own.
  [[nodiscard]] std::int64_t GetTusUploadOffset(CURL* handle, const std::string& upload_url,
                                                TusResponse& response);

 private:
  struct Upload;
  struct Answer;

  [[nodiscard]] bool Run(const std::filesystem::path& file_path);
  [[nodiscard]] bool Measure(Upload& upload);
  [[nodiscard]] bool CreateResource(Upload& upload);
  [[nodiscard]] bool TakeLocation(Upload& upload);
  [[nodiscard]] bool SendFile(Upload& upload);
  [[nodiscard]] bool SendChunk(Upload& upload);
  [[nodiscard]] bool SeekToOffset(Upload& upload);
  [[nodiscard]] bool AcceptChunk(Upload& upload);
  [[nodiscard]] bool MayRetry(Upload& upload, const Answer& answer);
  [[nodiscard]] std::int64_t OffsetOfAnswer(const TusResponse& response);
  // The texts are format strings for the path, the last one for the path and the reason.
  void DeleteLocal(const Upload& upload, const char* deleted, const char* failed,
                   const char* exception);

  std::string endpoint_;
  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  console::TransferProgress& progress_;
};

}  // namespace vosk::report
