#include "supervisor/network.h"

#include <curl/curl.h>

#include "identity.h"
#include "net/http_download.h"
#include "report/upload/tus_client.h"

namespace vosk::supervisor {

tl::expected<void, std::string> CurlNetwork::Initialize() {
  const CURLcode code = curl_global_init(CURL_GLOBAL_ALL);
  if (code != CURLE_OK) return tl::unexpected<std::string>(curl_easy_strerror(code));
  return {};
}

void CurlNetwork::CleanUp() {
  curl_global_cleanup();
}

std::unique_ptr<report::Uploader> CurlNetwork::MakeUploader(const platform::Host& host,
                                                            console::LogSink& log,
                                                            console::TransferProgress& progress) {
  return std::make_unique<report::TusClient>(std::string(identity::kCollectionUrl), host.files,
                                             host.clock, log, progress);
}

std::unique_ptr<net::Downloader> CurlNetwork::MakeDownloader(
    const platform::Host& host, console::LogSink& log, console::TransferProgress& progress,
    const std::atomic<bool>& g_terminateMonitoring) {
  return std::make_unique<net::HttpDownloader>(host.files, host.clock, log, progress,
                                               g_terminateMonitoring);
}

std::unique_ptr<net::VersionService> CurlNetwork::MakeVersionService(console::LogSink& log) {
  return std::make_unique<net::HttpVersionService>(std::string(identity::kVersionServiceUrl), log);
}

}  // namespace vosk::supervisor
