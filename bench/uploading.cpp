#include <curl/curl.h>
#include <fmt/format.h>

#include <cstdio>
#include <memory>

#include "bench/benches.h"
#include "bench/discarding_server.h"
#include "bench/measure.h"
#include "report/upload/tus_client.h"
#include "report/upload/tus_protocol.h"
#include "simulation/log_recorder.h"
#include "simulation/simulated_host.h"

namespace vosk::bench {
namespace {

constexpr std::uint64_t kFileSize = 1024 * kMebibyte;
constexpr int kRounds = 9;
constexpr double kLeastShare = 0.9;

std::size_t ReadFromFile(char* buffer, std::size_t size, std::size_t count, void* file) {
  return std::fread(buffer, size, count, static_cast<std::FILE*>(file));
}

// Sends the same PATCH requests with one handle, a list of headers for each and nothing else.
void UploadWithLibcurlAlone(const std::string& url, const std::string& path, long buffer_bytes) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             &std::fclose);
  CURL* const handle = curl_easy_init();
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, "PATCH");
  curl_easy_setopt(handle, CURLOPT_READFUNCTION, &ReadFromFile);
  curl_easy_setopt(handle, CURLOPT_READDATA, file.get());
  if (buffer_bytes > 0) curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, buffer_bytes);
  const auto file_size = static_cast<std::int64_t>(kFileSize);
  for (std::int64_t offset = 0; offset < file_size; offset += report::kChunkSize) {
    curl_slist* headers = nullptr;
    for (const std::string& line : report::ChunkHeaders(offset)) {
      headers = curl_slist_append(headers, line.c_str());
    }
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE,
                     static_cast<curl_off_t>(report::ChunkLength(offset, file_size)));
    StopUnless(curl_easy_perform(handle) == CURLE_OK, "libcurl alone could not upload");
    curl_slist_free_all(headers);
  }
  curl_easy_cleanup(handle);
}

double Speed(double seconds) {
  return static_cast<double>(kFileSize) / 1e6 / seconds;
}

}  // namespace

bool MeasureUploading(const std::filesystem::path& work_directory) {
  const auto directory = std::filesystem::absolute(work_directory);
  const auto file = directory / "upload.zip";
  const auto kept = directory / "upload.kept";
  WriteSampleDump(kept, kFileSize);
  const DiscardingServer server;

  simulation::SimulatedHost host;
  simulation::LogRecorder log(host);
  console::TransferProgress progress;
  report::TusClient client(server.Url(), host.files, host.clock, log.Sink(), progress);
  const auto ours = [&] {
    // A successful upload deletes its file; the second name keeps the bytes.
    std::filesystem::create_hard_link(kept, file);
    StopUnless(client.TusUpload(file), "TusUpload failed");
  };

  bool met = true;
  fmt::print("{} MiB in 5 MiB PATCH requests to a discarding server, medians of {} runs each\n",
             kFileSize / kMebibyte, kRounds);
  for (const long buffer_bytes : {0L, 512L * 1024}) {
    const Comparison medians = Compare(kRounds, ours, [&] {
      UploadWithLibcurlAlone(server.Url() + "upload", kept.string(), buffer_bytes);
    });
    const double share = 1 / medians.ratio.wall;
    if (share < kLeastShare) met = false;
    fmt::print("  VOSK {:5.0f} MB/s, libcurl alone with {} {:5.0f} MB/s: {:.2f} of it\n",
               Speed(medians.ours.wall),
               buffer_bytes > 0 ? "512 KiB upload buffer" : "its own upload buffer",
               Speed(medians.theirs.wall), share);
  }
  fmt::print("  target at least {} of either: {}\n", kLeastShare, met ? "met" : "MISSED");
  std::filesystem::remove(kept);
  return met;
}

}  // namespace vosk::bench
