#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <tl/expected.hpp>

#include "console/log.h"
#include "console/transfer_progress.h"
#include "net/downloader.h"
#include "net/version_service.h"
#include "platform/host.h"
#include "report/upload/uploader.h"

namespace vosk::supervisor {

// Where the supervisor gets everything that talks to a server. Tests give it servers without
// sockets.
class Network {
 public:
  virtual ~Network() = default;
  // Once before any transfer; the error is the library's own text.
  virtual tl::expected<void, std::string> Initialize() = 0;
  // Once after the last transfer, where Initialize succeeded.
  virtual void CleanUp() = 0;
  virtual std::unique_ptr<report::Uploader> MakeUploader(const platform::Host& host,
                                                         console::LogSink& log,
                                                         console::TransferProgress& progress) = 0;
  virtual std::unique_ptr<net::Downloader> MakeDownloader(
      const platform::Host& host, console::LogSink& log, console::TransferProgress& progress,
      const std::atomic<bool>& g_terminateMonitoring) = 0;
  virtual std::unique_ptr<net::VersionService> MakeVersionService(console::LogSink& log) = 0;
};

// The real one, on libcurl and to the addresses that VOSK was built for.
class CurlNetwork : public Network {
 public:
  tl::expected<void, std::string> Initialize() override;
  void CleanUp() override;
  std::unique_ptr<report::Uploader> MakeUploader(const platform::Host& host, console::LogSink& log,
                                                 console::TransferProgress& progress) override;
  std::unique_ptr<net::Downloader> MakeDownloader(
      const platform::Host& host, console::LogSink& log, console::TransferProgress& progress,
      const std::atomic<bool>& g_terminateMonitoring) override;
  std::unique_ptr<net::VersionService> MakeVersionService(console::LogSink& log) override;
};

}  // namespace vosk::supervisor
