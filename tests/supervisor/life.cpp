#include "tests/supervisor/life.h"

#include <miniz.h>

#include <filesystem>
#include <fstream>

#include "identity.h"
#include "install/work_files.h"
#include "tests/support/fake_downloader.h"
#include "tests/support/zip_bytes.h"

namespace vosk::supervisor {
namespace {

std::vector<std::string> EntriesOf(const std::filesystem::path& archive) {
  mz_zip_archive zip{};
  std::vector<std::string> names;
  if (!mz_zip_reader_init_file(&zip, archive.c_str(), 0)) return {"<no archive>"};
  for (mz_uint i = 0; i < mz_zip_reader_get_num_files(&zip); ++i) {
    char name[512];
    mz_zip_reader_get_filename(&zip, i, name, sizeof name);
    names.emplace_back(name);
  }
  mz_zip_reader_end(&zip);
  return names;
}

class FakeUploader : public report::Uploader {
 public:
  explicit FakeUploader(FakeNetwork& network) : network_(network) {}

  bool TusUpload(const std::filesystem::path& file_path) override {
    if (!network_.server_up) return false;
    network_.received.push_back(file_path.filename().string());
    network_.received_entries.push_back(EntriesOf(file_path));
    std::filesystem::remove(file_path);
    return true;
  }

 private:
  FakeNetwork& network_;
};

class FakeVersionService : public net::VersionService {
 public:
  explicit FakeVersionService(FakeNetwork& network) : network_(network) {}

  std::string FetchVersion() override {
    ++network_.version_queries;
    return network_.latest_version;
  }

 private:
  FakeNetwork& network_;
};

}  // namespace

std::unique_ptr<report::Uploader> FakeNetwork::MakeUploader(const platform::Host&,
                                                            console::LogSink&,
                                                            console::TransferProgress&) {
  return std::make_unique<FakeUploader>(*this);
}

std::unique_ptr<net::Downloader> FakeNetwork::MakeDownloader(const platform::Host&,
                                                             console::LogSink&,
                                                             console::TransferProgress&,
                                                             const std::atomic<bool>&) {
  auto downloader = std::make_unique<support::FakeDownloader>();
  downloader->fetch = [this](const std::string& url, const std::filesystem::path& destination) {
    const auto found = downloads.find(url);
    if (found == downloads.end()) return false;
    std::ofstream file(destination, std::ios::binary);
    file << found->second;
    return file.good();
  };
  return downloader;
}

std::unique_ptr<net::VersionService> FakeNetwork::MakeVersionService(console::LogSink&) {
  return std::make_unique<FakeVersionService>(*this);
}

void FurnishHost(support::SimulatedHost& host, support::MonitorBehaviour monitor) {
  host.InstallCore();
  host.InstallMonitor(monitor);
  host.PutFile(host.system.roaming_path / "VELDRAN" / "stats" / "TestNet" / "core.log",
               "node started\n");
}

void PublishPackage(support::SimulatedHost& host, FakeNetwork& network,
                    const support::SimPackage& package) {
  network.downloads[std::string(identity::kCorePackageUrl)] =
      support::ZipBytes({{std::string(install::kMsiName), host.installer.MakePackage(package)}});
}

void ChooseItem(support::SimulatedHost& host, int item) {
  host.KeyPressed('m');
  for (int at = 1; at < item; ++at) {
    host.KeyPressed(kArrow);
    host.KeyPressed(kDown);
  }
  host.KeyPressed(kEnter);
}

std::size_t EverStarted(const support::SimulatedHost& host, std::u16string_view name) {
  std::size_t count = 0;
  for (const auto& [pid, process] : host.processes.Table())
    count += process.executable_name == name;
  return count;
}

int LiveOnce(support::SimulatedHost& host, FakeNetwork& network, const LifeOptions& options) {
  host.At(options.quit_at, [](support::SimulatedHost& at) { at.KeyPressed('q'); });
  return Supervisor(host.Bundle(), network).Run(options.arguments);
}

}  // namespace vosk::supervisor
