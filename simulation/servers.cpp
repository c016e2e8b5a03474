#include "simulation/servers.h"

#include <miniz.h>

#include <fstream>

#include "identity.h"
#include "install/work_directory.h"
#include "simulation/zip_bytes.h"

namespace vosk::simulation {

namespace fs = std::filesystem;

namespace {

// An archive opened for reading; it has no entries if the file is no archive.
class Archive {
 public:
  explicit Archive(const fs::path& path) {
    open_ = mz_zip_reader_init_file(&zip_, path.c_str(), 0) != MZ_FALSE;
  }
  ~Archive() {
    if (open_) mz_zip_reader_end(&zip_);
  }
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;

  [[nodiscard]] bool IsOpen() const { return open_; }
  [[nodiscard]] mz_uint Size() { return open_ ? mz_zip_reader_get_num_files(&zip_) : 0; }
  std::string NameAt(mz_uint index) {
    char name[512] = {};
    mz_zip_reader_get_filename(&zip_, index, name, sizeof name);
    return name;
  }
  std::string BytesAt(mz_uint index) {
    std::size_t size = 0;
    void* bytes = mz_zip_reader_extract_to_heap(&zip_, index, &size, 0);
    if (bytes == nullptr) return {};
    std::string result(static_cast<const char*>(bytes), size);
    mz_free(bytes);
    return result;
  }

 private:
  mz_zip_archive zip_{};
  bool open_ = false;
};

std::vector<std::string> EntriesOf(const fs::path& path) {
  Archive archive(path);
  std::vector<std::string> names;
  if (!archive.IsOpen()) names.emplace_back("<no archive>");
  for (mz_uint at = 0; at < archive.Size(); ++at) names.push_back(archive.NameAt(at));
  return names;
}

}  // namespace

std::vector<DumpId> DumpsInArchive(const fs::path& path) {
  Archive archive(path);
  std::vector<DumpId> dumps;
  for (mz_uint at = 0; at < archive.Size(); ++at) {
    if (!archive.NameAt(at).ends_with(".dmp")) continue;
    dumps.push_back(DumpIdOf(archive.BytesAt(at)));
  }
  return dumps;
}

class SimUploader : public report::Uploader {
 public:
  SimUploader(SimServers& network, platform::Files& files) : network_(network), files_(files) {}

  using Uploader::TusUpload;
  bool TusUpload(const fs::path& file_path, const Interrupt& interrupt) override {
    if (interrupt && interrupt()) return false;
    if (!network_.Request("network.Upload", network_.server_up)) return false;
    network_.received.push_back({.name = file_path.filename().string(),
                                 .entries = EntriesOf(file_path),
                                 .dumps = DumpsInArchive(file_path)});
    static_cast<void>(files_.Remove(file_path));
    return true;
  }

 private:
  SimServers& network_;
  platform::Files& files_;
};

class SimDownloader : public net::Downloader {
 public:
  explicit SimDownloader(SimServers& network) : network_(network) {}

  bool DownloadFile(const std::string& url, const fs::path& destination) override {
    const auto found = network_.downloads.find(url);
    const bool there = network_.downloads_up && found != network_.downloads.end();
    if (!network_.Request("network.Download", there)) return false;
    std::ofstream file(destination, std::ios::binary);
    file << found->second;
    return file.good();
  }

 private:
  SimServers& network_;
};

class SimVersionService : public net::VersionService {
 public:
  explicit SimVersionService(SimServers& network) : network_(network) {}

  std::string FetchVersion() override {
    ++network_.version_queries;
    const bool answers = network_.version_service_up && !network_.latest_version.empty();
    return network_.Request("network.FetchVersion", answers) ? network_.latest_version : "";
  }

 private:
  SimServers& network_;
};

tl::expected<void, std::string> SimServers::Initialize() {
  if (!initialize_error.empty()) return tl::unexpected(initialize_error);
  ++open_initialisations;
  return {};
}

bool SimServers::Request(std::string_view operation, bool server_answers) {
  ++requests;
  const bool refused = host_.choke.Announce(operation).has_value();
  const bool succeeds = server_answers && !refused;
  const Duration begun = host_.clock.Elapsed();
  host_.clock.Advance(succeeds ? transfer_time : refusal_time);
  time_spent += host_.clock.Elapsed() - begun;
  return succeeds;
}

std::unique_ptr<report::Uploader> SimServers::MakeUploader(const platform::Host& host,
                                                           console::LogSink&,
                                                           console::TransferProgress&) {
  return std::make_unique<SimUploader>(*this, host.files);
}

std::unique_ptr<net::Downloader> SimServers::MakeDownloader(const platform::Host&,
                                                            console::LogSink&,
                                                            console::TransferProgress&,
                                                            const std::atomic<bool>&) {
  return std::make_unique<SimDownloader>(*this);
}

std::unique_ptr<net::VersionService> SimServers::MakeVersionService(console::LogSink&) {
  return std::make_unique<SimVersionService>(*this);
}

std::vector<std::string> SimServers::ReceivedNames() const {
  std::vector<std::string> names;
  for (const ReceivedReport& report : received) names.push_back(report.name);
  return names;
}

void SimServers::PublishPackage(const SimPackage& package) {
  downloads[std::string(identity::kCorePackageUrl)] =
      ZipBytes({{std::string(install::kMsiName), host_.installer.MakePackage(package)}});
}

}  // namespace vosk::simulation
