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

// Creates everything that talks to a server. Tests use servers without sockets instead.
class Network {
 public:
  virtual ~Network() = default;
  // Called once before any transfer; the error is the library's own text.
  virtual tl::expected<void, std::string> Initialize() = 0;
  // Called once after the last transfer, if Initialize succeeded.
  virtual void CleanUp() = 0;
  virtual std::unique_ptr<report::Uploader> MakeUploader(const platform::Host& host,
                                                         console::LogSink& log,
                                                         console::TransferProgress& progress) = 0;
  virtual std::unique_ptr<net::Downloader> MakeDownloader(
      const platform::Host& host, console::LogSink& log, console::TransferProgress& progress,
      const std::atomic<bool>& g_terminateMonitoring) = 0;
  virtual std::unique_ptr<net::VersionService> MakeVersionService(console::LogSink& log) = 0;
};

// The real network: libcurl and the addresses that VOSK was built for.
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
